#pragma once

/// @file
/// The items: files and folders below the root, with their recorded values.

#include "Feed.h"
#include "Item.h"
#include "ItemJournal.h"
#include "StateFolder.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <shared_mutex>
#include <string>
#include <vector>

namespace ApplianceParts
{

/// The folder that every user has.
inline constexpr const char* kHomePath = "/home";

/// What a file may replace.
struct PutCondition
{
    std::string revision = {}; ///< only this revision; empty: any.
    bool mustBeNew = false;    ///< nothing: the item must not exist.
};

struct FolderListing
{
    Item folder;
    std::vector<Item> children; ///< ordered by name.
};

struct OpenedFile
{
    Item item;
    FileContent content;
};

/// Refuses with `ApiError`, fails with `std::filesystem::filesystem_error`. Every change is published to the feed. Safe to use from several
/// threads; changes are atomic.
class ItemStore
{
public:
    ItemStore(std::filesystem::path root, const StateFolder& state, Feed& feed);

    /// Creates the home folder if it does not exist.
    void EnsureHome();

    [[nodiscard]] Item Get(const ItemPath& path) const;
    [[nodiscard]] FolderListing List(const ItemPath& path) const;
    /// Opens a file's content, which later changes of the item do not affect.
    /// @param revision  the required one; empty: any.
    /// @param skip      how many bytes at its beginning are left out.
    [[nodiscard]] OpenedFile Open(const ItemPath& path, const std::string& revision, std::uint64_t skip = 0) const;

    Item CreateFolder(const ItemPath& path);
    Item SetAttributes(const ItemPath& path, const ItemChanges& changes);
    /// Renames or moves an item; a folder with all its content. Only a file can be overwritten, and only by a file.
    Item Move(const ItemPath& from, const ItemPath& to, bool mayOverwrite);
    /// Removes an item; a folder with all its content.
    /// @param revision  the required one; empty: any.
    void Remove(const ItemPath& path, const std::string& revision);
    /// Makes a file the content of a new or existing item. The file must be on the root's file system, and is moved.
    Item PutFile(const ItemPath& path, const std::filesystem::path& content, const ItemChanges& changes, const PutCondition& condition);

private:
    [[nodiscard]] std::filesystem::path Locate(const ItemPath& path) const;
    [[nodiscard]] std::optional<Item> Look(const ItemPath& path) const;
    [[nodiscard]] Item Require(const ItemPath& path) const;
    void RequireFolder(const ItemPath& path) const;
    /// Refuses to move the root and the home folder.
    void RequireMovable(const ItemPath& path) const;
    void Record(const ItemPath& path, const Item& item);

    std::filesystem::path m_root;
    const StateFolder& m_state;
    Feed& m_feed;
    mutable std::shared_mutex m_mutex;
    ItemJournal m_journal;
};

/// The reply to the client for a file system error.
[[nodiscard]] ApiError ToApiError(const std::error_code& error);

} // namespace ApplianceParts
