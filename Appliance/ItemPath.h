#pragma once

/// @file
/// The path of an item, checked: it stays below the root, whatever it was made from.

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace ApplianceParts
{

class ItemPath
{
public:
    /// The root.
    ItemPath() = default;

    /// From the percent-encoded path of a request.
    /// @throws ApiError where it is no path of an item.
    [[nodiscard]] static ItemPath FromUrl(std::string_view encoded);

    /// From UTF-8 text, such as a form's field. "/" separates; it may lead and trail.
    /// @throws ApiError where it is no path of an item.
    [[nodiscard]] static ItemPath FromText(std::string_view text);

    [[nodiscard]] bool IsRoot() const { return m_names.empty(); }
    /// The last name; empty for the root.
    [[nodiscard]] std::string Name() const { return IsRoot() ? std::string() : m_names.back(); }
    [[nodiscard]] const std::vector<std::string>& Names() const { return m_names; }

    /// "/a/b", and "/" for the root.
    [[nodiscard]] std::string Text() const;

    /// The folder that holds this item; the root's is the root.
    [[nodiscard]] ItemPath Parent() const;

    /// @throws ApiError where items cannot have this name.
    [[nodiscard]] ItemPath Child(std::string_view name) const;

    /// Whether this item is in that folder, at any depth.
    [[nodiscard]] bool IsBelow(const ItemPath& folder) const;

    bool operator==(const ItemPath&) const = default;

    /// Whether an item may be called so.
    [[nodiscard]] static bool IsName(std::string_view name, bool isInRoot);

private:
    std::vector<std::string> m_names;
};

/// Text in UTF-8 as a file system's path, and back.
[[nodiscard]] std::filesystem::path ToFilePath(std::string_view name);
[[nodiscard]] std::string ToUtf8(const std::filesystem::path& path);

} // namespace ApplianceParts
