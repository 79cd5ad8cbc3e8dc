#include "ItemJournal.h"

#include "JsonText.h"
#include "UtcText.h"

#include <algorithm>
#include <system_error>

namespace ApplianceParts
{

namespace
{

// The entries: {"set":PATH,...}, {"remove":PATH}, {"move":PATH,"to":PATH}, {"revision":N}.
constexpr const char* kSet = "set";
constexpr const char* kRemove = "remove";
constexpr const char* kMove = "move";
constexpr const char* kTo = "to";
constexpr const char* kRevision = "revision";

Json::Value Entry(const std::string& path, const ItemRecord& record)
{
    return JsonObject({{kSet, path},
                       {"created", FormatUtc(record.created)},
                       {"modified", FormatUtc(record.modified)},
                       {"attributes", record.attributes},
                       {kRevision, record.revision},
                       {"stamp", Json::Int64(record.stamp)},
                       {"size", Json::UInt64(record.size)}});
}

} // namespace

ItemJournal::ItemJournal(std::filesystem::path file) : m_file(std::move(file))
{
    std::ifstream input(m_file, std::ios::binary);
    for (std::string line; std::getline(input, line);)
        if (const auto entry = ParseJsonObject(line))
            Apply(*entry);
    input.close();
    WriteAnew();
}

const ItemRecord* ItemJournal::Find(const std::string& path) const
{
    const auto found = m_records.find(path);
    return found == m_records.end() ? nullptr : &found->second;
}

void ItemJournal::Set(const std::string& path, const ItemRecord& record)
{
    Change(Entry(path, record));
}

void ItemJournal::Remove(const std::string& path)
{
    Change(JsonObject({{kRemove, path}}));
}

void ItemJournal::Move(const std::string& from, const std::string& to)
{
    Change(JsonObject({{kMove, from}, {kTo, to}}));
}

std::string ItemJournal::NewRevision()
{
    return std::to_string(++m_lastRevision);
}

void ItemJournal::Change(const Json::Value& entry)
{
    Apply(entry);
    m_output << JsonLine(entry) << '\n' << std::flush;
    if (!m_output)
    {
        // Later entries may succeed. An incomplete line is skipped when reading, and must not be joined with the next one.
        m_output.clear();
        m_output << '\n';
        throw std::system_error(std::make_error_code(std::errc::no_space_on_device), "cannot record the item");
    }
}

void ItemJournal::Apply(const Json::Value& entry)
{
    if (entry.isMember(kSet))
    {
        ItemRecord record;
        record.created = ParseTime(entry["created"].asString()).value_or(ItemTime());
        record.modified = ParseTime(entry["modified"].asString()).value_or(ItemTime());
        record.attributes = entry["attributes"].asUInt();
        record.revision = entry[kRevision].asString();
        record.stamp = entry["stamp"].asInt64();
        record.size = entry["size"].asUInt64();
        m_lastRevision = std::max<std::uint64_t>(m_lastRevision, std::strtoull(record.revision.c_str(), nullptr, 10));
        m_records[entry[kSet].asString()] = record;
    }
    else if (entry.isMember(kRemove))
    {
        EraseTree(entry[kRemove].asString());
    }
    else if (entry.isMember(kMove))
    {
        MoveTree(entry[kMove].asString(), entry[kTo].asString());
    }
    else if (entry.isMember(kRevision))
    {
        m_lastRevision = std::max<std::uint64_t>(m_lastRevision, entry[kRevision].asUInt64());
    }
}

void ItemJournal::WriteAnew()
{
    auto fresh = m_file;
    fresh += ".new";
    m_output.open(fresh, std::ios::binary | std::ios::trunc);
    m_output << JsonLine(JsonObject({{kRevision, Json::UInt64(m_lastRevision)}})) << '\n';
    for (const auto& [path, record] : m_records)
        m_output << JsonLine(Entry(path, record)) << '\n';
    m_output.close();
    if (!m_output)
        throw std::system_error(std::make_error_code(std::errc::io_error), "cannot write " + fresh.string());
    std::filesystem::rename(fresh, m_file);
    m_output.open(m_file, std::ios::binary | std::ios::app);
}

void ItemJournal::EraseTree(const std::string& path)
{
    m_records.erase(path);
    m_records.erase(m_records.lower_bound(path + "/"), m_records.lower_bound(path + "0")); // "0" follows "/"
}

void ItemJournal::MoveTree(const std::string& from, const std::string& to)
{
    Records moved;
    for (auto next = m_records.lower_bound(from); next != m_records.end() && next->first.starts_with(from); ++next)
        if (const auto rest = next->first.substr(from.size()); rest.empty() || rest.front() == '/')
            moved[to + rest] = next->second;
    EraseTree(from);
    EraseTree(to);
    m_records.merge(moved);
}

} // namespace ApplianceParts
