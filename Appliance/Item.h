#pragma once

/// @file
/// An item: its path, and its values in requests and replies.

#include "Http.h"

#include <chrono>
#include <filesystem>

namespace ApplianceParts
{

/// The checked path of an item: it cannot lead outside the root.
class ItemPath
{
public:
    /// The root.
    ItemPath() = default;

    /// From the percent-encoded path of a request.
    /// @throws ApiError if it is not a valid path.
    [[nodiscard]] static ItemPath FromUrl(std::string_view encoded);

    /// From UTF-8 text, such as a form's field. "/" separates; leading and trailing ones are allowed.
    /// @throws ApiError if it is not a valid path.
    [[nodiscard]] static ItemPath FromText(std::string_view text);

    [[nodiscard]] bool IsRoot() const { return m_text.empty(); }

    /// "/a/b", and "/" for the root.
    [[nodiscard]] std::string Text() const { return IsRoot() ? "/" : m_text; }

    /// The folder that holds this item; the root's is the root.
    [[nodiscard]] ItemPath Parent() const { return ItemPath(m_text.substr(0, m_text.rfind('/'))); }

    /// @throws ApiError if the name is not allowed.
    [[nodiscard]] ItemPath Child(std::string_view name) const;

    /// Whether this item is in that folder, at any depth.
    [[nodiscard]] bool IsBelow(const ItemPath& folder) const { return m_text.starts_with(folder.m_text + "/"); }

    bool operator==(const ItemPath&) const = default;

    /// Whether an item may have this name.
    [[nodiscard]] static bool IsName(std::string_view name);

private:
    explicit ItemPath(std::string text) : m_text(std::move(text)) {}

    std::string m_text; ///< empty for the root.
};

/// Text in UTF-8 as a file system's path.
[[nodiscard]] std::filesystem::path ToFilePath(std::string_view name);

/// In steps of 100 ns, as text "2015-03-02T10:20:30.1234567Z".
using ItemTime = std::chrono::sys_time<std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>>;

inline constexpr std::uint32_t kDirectoryAttribute = 0x10;
inline constexpr std::uint32_t kNormalAttribute = 0x80;

struct Item
{
    std::string path = {}; ///< "/a/b", and "/" for the root.
    bool isFolder = false;
    std::uint64_t size = 0;
    ItemTime created = {};
    ItemTime modified = {};
    std::uint32_t attributes = 0;
    std::string revision = {};
    std::string stamp = {}; ///< of the file: it shows whether the file was changed without the appliance.
};

/// The values of an item that a client sets; a missing one is unchanged, or gets its default.
struct ItemChanges
{
    std::optional<ItemTime> created;
    std::optional<ItemTime> modified;
    std::optional<std::uint32_t> attributes;
};

[[nodiscard]] ItemTime Now();

/// Reads a time with or without a fraction; nothing if it is not a time between the years 1601 and 30827.
[[nodiscard]] std::optional<ItemTime> ParseTime(const std::string& text);

/// A number in decimal, without a sign.
/// @throws ApiError if it is not a number, or exceeds a signed 64-bit number.
[[nodiscard]] std::uint64_t ReadNumber(const std::string& text, const std::string& name);

/// Reads the fields "creation_time", "modification_time" and "attributes" (the bits in decimal). Clients send "INVALID" for a time and
/// 4294967295 for bits that they do not know.
/// @throws ApiError if one of the texts is malformed.
[[nodiscard]] ItemChanges ReadChanges(const Fields& fields);

/// An item's JSON in replies.
[[nodiscard]] Json::Value ToJson(const Item& item);

/// `{"document_info":ITEM}`.
[[nodiscard]] Reply ItemReply(const Item& item);

} // namespace ApplianceParts
