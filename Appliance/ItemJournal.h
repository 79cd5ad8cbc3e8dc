#pragma once

/// @file
/// What files cannot hold of an item, by the item's path.

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
    std::uint64_t size = 0; ///< its size: a file changed behind the appliance's back shows.
};

/// The records in memory, and a file to which every change is appended as a line of JSON; a process that dies leaves at worst
/// half a line, which the next one skips. Opening writes the file anew, without what has been overtaken. Needs a lock around it.
class ItemJournal
{
public:
    /// @throws std::system_error where the file cannot be written.
    explicit ItemJournal(std::filesystem::path file);

    [[nodiscard]] const ItemRecord* Find(const std::string& path) const;

    void Set(const std::string& path, const ItemRecord& record);
    /// The item and all below it.
    void Remove(const std::string& path);
    /// The item and all below it; what was recorded for the target goes.
    void Move(const std::string& from, const std::string& to);

    /// A revision that no item ever had.
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
