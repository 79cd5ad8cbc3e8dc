#include "ItemPath.h"

#include "Exchange.h"
#include "Form.h"
#include "StateFolder.h"
#include "System.h"

#include <algorithm>

namespace ApplianceParts
{

namespace
{

// File systems that fold case fold at least this much.
std::u8string LowerAscii(std::string_view text)
{
    std::u8string lower(text.begin(), text.end());
    for (char8_t& unit : lower)
        unit = unit >= u8'A' && unit <= u8'Z' ? static_cast<char8_t>(unit + 32) : unit;
    return lower;
}

} // namespace

std::filesystem::path ToFilePath(std::string_view name)
{
    return std::filesystem::path(std::u8string(name.begin(), name.end()));
}

std::string ToUtf8(const std::filesystem::path& path)
{
    const auto text = path.u8string();
    return std::string(text.begin(), text.end());
}

ItemPath ItemPath::FromUrl(std::string_view encoded)
{
    const auto text = PercentDecode(encoded, Plus::IsItself);
    if (!text)
        throw ApiError(400, ErrorId::Malformed, "the path is not percent-encoded");
    return FromText(*text);
}

ItemPath ItemPath::FromText(std::string_view text)
{
    ItemPath path;
    while (!text.empty())
    {
        const auto name = text.substr(0, text.find('/'));
        text.remove_prefix(std::min(text.size(), name.size() + 1));
        if (!name.empty())
            path = path.Child(name);
    }
    return path;
}

std::string ItemPath::Text() const
{
    std::string text;
    for (const auto& name : m_names)
        text.append("/").append(name);
    return text.empty() ? "/" : text;
}

ItemPath ItemPath::Parent() const
{
    ItemPath parent = *this;
    if (!IsRoot())
        parent.m_names.pop_back();
    return parent;
}

ItemPath ItemPath::Child(std::string_view name) const
{
    if (!IsName(name, IsRoot()))
        throw ApiError(400, ErrorId::NameNotAllowed, "the name is not allowed");
    ItemPath child = *this;
    child.m_names.emplace_back(name);
    return child;
}

bool ItemPath::IsBelow(const ItemPath& folder) const
{
    return m_names.size() > folder.m_names.size() && std::equal(folder.m_names.begin(), folder.m_names.end(), m_names.begin());
}

bool ItemPath::IsName(std::string_view name, bool isInRoot)
{
    if (name.empty() || name == "." || name == ".." || !IsValidUtf8(name))
        return false;
    const std::u8string units(name.begin(), name.end());
    return System::IsFileName(units) && !(isInRoot && LowerAscii(name) == StateFolder::kName);
}

} // namespace ApplianceParts
