#pragma once

/// @file
/// The values of items that files cannot store, by the item's path.

#include "Item.h"
#include "JsonText.h"
#include "StateFolder.h"
#include "UtcText.h"

#include <map>
#include <sstream>

namespace ApplianceParts
{

/// The records in memory, and a file with a line of JSON for each change, `{PATH:VALUES,...}`, where null removes a record. A process that
/// is killed leaves at most one incomplete line, which the next one skips. Opening rewrites the file as one line. Callers must hold a lock.
///
/// Each change of the records comes with a function that makes the change of the files: if one of both fails, neither has happened.
class ItemJournal
{
public:
    /// @throws std::system_error if the file cannot be written.
    explicit ItemJournal(const StateFolder& state) : m_state(state)
    {
        std::istringstream input(state.Read(kFile).value_or(""));
        for (std::string line; std::getline(input, line);)
            if (const auto changes = ParseJsonObject(line))
                Apply(*changes);
        Json::Value all(Json::objectValue);
        for (const auto& [path, item] : m_records)
            all[path] = ToRecord(item);
        state.Write(kFile, JsonLine(all) + "\n");
    }

    /// The recorded values of an item; null for none. It has no path here.
    [[nodiscard]] const Item* Find(const std::string& path) const
    {
        const auto found = m_records.find(path);
        return found == m_records.end() ? nullptr : &found->second;
    }

    /// Records an item, and gives it a revision that no item has had before.
    void Set(Item& item, const std::function<void()>& change)
    {
        item.revision = RandomHex(16);
        Change(JsonObject({{item.path.c_str(), ToRecord(item)}}), change);
    }

    /// Removes the records of the item and all below it.
    void Remove(const std::string& path, const std::function<void()>& change) { Change(Removal(path), change); }

    /// Moves the records of the item and all below it; the target's records are removed.
    void Move(const std::string& from, const std::string& to, const std::function<void()>& change)
    {
        auto changes = Removal(to);
        for (const auto& path : Removal(from).getMemberNames())
        {
            changes[path] = Json::nullValue;
            changes[to + path.substr(from.size())] = ToRecord(m_records[path]);
        }
        Change(changes, change);
    }

private:
    static constexpr const char* kFile = "items.jsonl";

    static Json::Value ToRecord(const Item& item)
    {
        return JsonObject({{"created", FormatUtc(item.created)},
                           {"modified", FormatUtc(item.modified)},
                           {"attributes", item.attributes},
                           {"revision", item.revision},
                           {"stamp", item.stamp}});
    }

    // The change that removes all that is recorded for an item and below it.
    [[nodiscard]] Json::Value Removal(const std::string& path) const
    {
        Json::Value changes(Json::objectValue);
        for (auto next = m_records.lower_bound(path); next != m_records.end() && next->first.starts_with(path); ++next)
            if (const auto rest = next->first.substr(path.size()); rest.empty() || rest.front() == '/')
                changes[next->first] = Json::nullValue;
        return changes;
    }

    void Change(const Json::Value& changes, const std::function<void()>& change)
    {
        m_state.Append(kFile, changes, change);
        Apply(changes);
    }

    void Apply(const Json::Value& changes)
    {
        for (const auto& path : changes.getMemberNames())
        {
            const auto& record = changes[path];
            m_records.erase(path);
            if (record.isObject())
                m_records[path] = {.created = ParseTime(record["created"].asString()).value_or(ItemTime()),
                                   .modified = ParseTime(record["modified"].asString()).value_or(ItemTime()),
                                   .attributes = record["attributes"].asUInt(),
                                   .revision = record["revision"].asString(),
                                   .stamp = record["stamp"].asString()};
        }
    }

    const StateFolder& m_state;
    std::map<std::string, Item> m_records;
};

} // namespace ApplianceParts
