#pragma once

/// @file
/// The values of items that files cannot store, by the item's path.

#include "Item.h"
#include "LineWriter.h"
#include "StateFolder.h"

namespace ApplianceParts
{

/// The records in memory, and a file to which every change is appended as a line of JSON. A process that is killed leaves at most one
/// incomplete line, which the next one skips. Opening rewrites the file without outdated entries. Callers must hold a lock.
class ItemJournal
{
public:
    /// @throws std::system_error if the file cannot be written.
    explicit ItemJournal(const StateFolder& state) : m_output(Load(state)) {}

    /// The recorded values of an item; null for none. An item that was moved still has its old path and name here.
    [[nodiscard]] const Item* Find(const std::string& path) const;

    /// Records an item, and gives it a revision that no item has had before.
    void Set(Item& item);
    /// Removes the records of the item and all below it.
    void Remove(const std::string& path);
    /// Moves the records of the item and all below it; the target's records are removed.
    void Move(const std::string& from, const std::string& to);

private:
    // Returns the path of the file.
    std::filesystem::path Load(const StateFolder& state);
    void Apply(const Json::Value& entry);
    /// Applies an entry and appends it to the file.
    void Change(const Json::Value& entry);
    void Erase(const std::string& path);

    std::map<std::string, Item> m_records;
    std::uint64_t m_lastRevision = 0;
    LineWriter m_output;
};

} // namespace ApplianceParts
