#pragma once

/// @file
/// The items: files and folders below the root, with their recorded values.

#include "Feed.h"
#include "ItemJournal.h"

#include <shared_mutex>
#include <vector>

namespace ApplianceParts
{

/// The folder that every user has.
inline constexpr const char* kHomePath = "/home";

/// Refuses with `ApiError`, fails with `std::filesystem::filesystem_error`. Every change is published to the feed. Safe to use from several
/// threads; changes are atomic.
class ItemStore
{
public:
    /// Creates the home folder if it does not exist.
    ItemStore(std::filesystem::path root, const StateFolder& state, Feed& feed);

    [[nodiscard]] Item Get(const ItemPath& path) const;
    /// @return the folder, and what it contains ordered by name.
    [[nodiscard]] std::pair<Item, std::vector<Item>> List(const ItemPath& path) const;
    /// Opens a file's content, which later changes of the item do not affect.
    /// @param revision  the required one; empty: any.
    /// @param skip      how many bytes at its beginning are left out.
    [[nodiscard]] std::pair<Item, FileContent> Open(const ItemPath& path, const std::string& revision, std::uint64_t skip = 0) const;

    Item CreateFolder(const ItemPath& path);
    Item SetAttributes(const ItemPath& path, const ItemChanges& changes);
    /// Renames or moves an item; a folder with all its content. Only a file can be overwritten, and only by a file.
    Item Move(const ItemPath& from, const ItemPath& to, bool mayOverwrite);
    /// Removes an item; a folder with all its content.
    /// @param revision  the required one; empty: any.
    void Remove(const ItemPath& path, const std::string& revision);
    /// Makes a file the content of a new or existing item. The file must be on the root's file system, and is moved.
    /// @param revision  the one that may be replaced; empty: any; none: the item must not exist.
    Item PutFile(const ItemPath& path, const std::filesystem::path& content, const ItemChanges& changes,
                 const std::optional<std::string>& revision);

private:
    [[nodiscard]] std::filesystem::path Locate(const ItemPath& path) const;
    /// Nothing if there is no item.
    /// @param isInKnownFolder  the folder that holds it has been looked at.
    [[nodiscard]] std::optional<Item> Look(const ItemPath& path, bool isInKnownFolder = false) const;
    /// The same for an item that is about to be written. @throws ApiError if there is something that is not an item.
    [[nodiscard]] std::optional<Item> LookForTarget(const ItemPath& path) const;
    [[nodiscard]] Item Require(const ItemPath& path) const;
    void RequireFolder(const ItemPath& path) const;
    /// Refuses to delete, move or rename the root and the home folder.
    void RequireMovable(const ItemPath& path) const;
    /// Makes a change, records the item's values, and publishes the action.
    Item Record(Item item, const std::string& action, const std::string& target, const std::function<void()>& change);

    std::filesystem::path m_root;
    const StateFolder& m_state;
    Feed& m_feed;
    mutable std::shared_mutex m_mutex;
    ItemJournal m_journal;
};

/// The reply to the client for a file system error.
[[nodiscard]] ApiError ToApiError(const std::error_code& error);

} // namespace ApplianceParts
