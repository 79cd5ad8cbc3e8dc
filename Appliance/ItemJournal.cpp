#include "ItemJournal.h"

#include "JsonText.h"
#include "UtcText.h"

#include <algorithm>
#include <cstdlib>
#include <sstream>

namespace ApplianceParts
{

namespace
{

constexpr const char* kFile = "items.jsonl";

// The entries: {"set":PATH,...}, {"remove":PATH}, {"move":PATH,"to":PATH}, {"revision":N}.
Json::Value Entry(const std::string& path, const Item& item)
{
    return JsonObject({{"set", path},
                       {"created", FormatUtc(item.created)},
                       {"modified", FormatUtc(item.modified)},
                       {"attributes", item.attributes},
                       {"revision", item.revision},
                       {"stamp", Json::Int64(item.stamp)},
                       {"size", Json::UInt64(item.size)}});
}

} // namespace

std::filesystem::path ItemJournal::Load(const StateFolder& state)
{
    std::istringstream input(state.Read(kFile).value_or(""));
    for (std::string line; std::getline(input, line);)
        if (const auto entry = ParseJsonObject(line))
            Apply(*entry);
    std::string fresh = JsonLine(JsonObject({{"revision", Json::UInt64(m_lastRevision)}})) + "\n";
    for (const auto& [path, item] : m_records)
        fresh += JsonLine(Entry(path, item)) + "\n";
    state.Write(kFile, fresh);
    return state.Path(kFile);
}

const Item* ItemJournal::Find(const std::string& path) const
{
    const auto found = m_records.find(path);
    return found == m_records.end() ? nullptr : &found->second;
}

void ItemJournal::Set(Item& item)
{
    item.revision = std::to_string(m_lastRevision + 1);
    Change(Entry(item.path, item));
}

void ItemJournal::Remove(const std::string& path)
{
    Change(JsonObject({{"remove", path}}));
}

void ItemJournal::Move(const std::string& from, const std::string& to)
{
    Change(JsonObject({{"move", from}, {"to", to}}));
}

void ItemJournal::Change(const Json::Value& entry)
{
    Apply(entry);
    m_output.Write(JsonLine(entry));
}

void ItemJournal::Apply(const Json::Value& entry)
{
    const auto revision = entry["revision"].asString();
    m_lastRevision = std::max<std::uint64_t>(m_lastRevision, std::strtoull(revision.c_str(), nullptr, 10));
    if (entry.isMember("set"))
    {
        auto& item = m_records[entry["set"].asString()];
        item.created = ParseTime(entry["created"].asString()).value_or(ItemTime());
        item.modified = ParseTime(entry["modified"].asString()).value_or(ItemTime());
        item.attributes = entry["attributes"].asUInt();
        item.revision = revision;
        item.stamp = entry["stamp"].asInt64();
        item.size = entry["size"].asUInt64();
    }
    else if (entry.isMember("remove"))
    {
        Erase(entry["remove"].asString());
    }
    else if (entry.isMember("move"))
    {
        const auto from = entry["move"].asString();
        const auto to = entry["to"].asString();
        std::map<std::string, Item> moved;
        for (auto next = m_records.lower_bound(from); next != m_records.end() && next->first.starts_with(from); ++next)
            if (const auto rest = next->first.substr(from.size()); rest.empty() || rest.front() == '/')
                moved[to + rest] = next->second;
        Erase(from);
        Erase(to);
        m_records.merge(moved);
    }
}

// Erases the records of an item and all below it.
void ItemJournal::Erase(const std::string& path)
{
    m_records.erase(path);
    m_records.erase(m_records.lower_bound(path + "/"), m_records.lower_bound(path + "0")); // "0" follows "/"
}

} // namespace ApplianceParts
