#pragma once

/// @file
/// The values of items that files cannot store, by the item's path.

#include "Item.h"

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>

namespace ApplianceParts
{

struct ItemRecord
{
    ItemTime created;
    ItemTime modified;
    std::uint32_t attributes = 0;
    std::string revision;
    std::int64_t stamp = 0; ///< the file's own time when the record was made, and
    std::uint64_t size = 0; ///< its size then: they show whether the file was changed without the appliance.
};

/// The records in memory, and a file to which every change is appended as a line of JSON. A process that is killed leaves at most one
/// incomplete line, which the next one skips. Opening rewrites the file without outdated entries. Callers must hold a lock.
class ItemJournal
{
public:
    /// @throws std::system_error if the file cannot be written.
    explicit ItemJournal(std::filesystem::path file);

    [[nodiscard]] const ItemRecord* Find(const std::string& path) const;

    void Set(const std::string& path, const ItemRecord& record);
    /// Removes the records of the item and all below it.
    void Remove(const std::string& path);
    /// Moves the records of the item and all below it; the target's records are removed.
    void Move(const std::string& from, const std::string& to);

    /// A revision that no item has had before.
    [[nodiscard]] std::string NewRevision();

private:
    using Records = std::map<std::string, ItemRecord>;

    void Apply(const Json::Value& entry);
    /// Applies an entry and appends it to the file.
    void Change(const Json::Value& entry);
    void WriteAnew();
    void EraseTree(const std::string& path);
    void MoveTree(const std::string& from, const std::string& to);

    std::filesystem::path m_file;
    std::ofstream m_output;
    Records m_records;
    std::uint64_t m_lastRevision = 0;
};

} // namespace ApplianceParts
