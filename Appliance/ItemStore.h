#pragma once

/// @file
/// The items: files and folders below the root, with what is recorded of them.

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

/// What may lie where a file is put.
struct PutCondition
{
    std::string revision = {}; ///< only over this revision; empty: over any.
    bool mustBeNew = false;    ///< over nothing.
};

struct FolderListing
{
    Item folder;
    std::vector<Item> children; ///< by name.
};

/// Refuses with `ApiError`, fails with `std::filesystem::filesystem_error`. Every change is told to the feed. Safe to use from
/// several threads; a change is made at once and wholly.
class ItemStore
{
public:
    ItemStore(std::filesystem::path root, const StateFolder& state, Feed& feed);

    /// Makes the home folder where it does not exist.
    void EnsureHome();

    [[nodiscard]] Item Get(const ItemPath& path) const;
    [[nodiscard]] FolderListing List(const ItemPath& path) const;
    /// The whole content of a file.
    /// @param revision  the one that is wanted; empty: whatever there is.
    [[nodiscard]] FileContent Open(const ItemPath& path, const std::string& revision) const;

    /// Makes a file with the content that the item has now, whatever becomes of the item meanwhile.
    /// @param revision  the one that is wanted; empty: whatever there is.
    Item Snapshot(const ItemPath& path, const std::string& revision, const std::filesystem::path& target) const;

    Item CreateFolder(const ItemPath& path);
    Item SetAttributes(const ItemPath& path, const ItemChanges& changes);
    /// Renames or moves an item; a folder goes with all that it holds. Only a file can be overwritten, and only by a file.
    Item Move(const ItemPath& from, const ItemPath& to, bool mayOverwrite);
    /// Removes an item; a folder goes with all that it holds.
    /// @param revision  only this one; empty: whatever there is.
    void Remove(const ItemPath& path, const std::string& revision);
    /// Makes a file the content of an item, new or not. The file is on the root's file system, and is taken.
    Item PutFile(const ItemPath& path, const std::filesystem::path& content, const ItemChanges& changes, const PutCondition& condition);

private:
    [[nodiscard]] std::filesystem::path Locate(const ItemPath& path) const;
    [[nodiscard]] std::optional<Item> Look(const ItemPath& path) const;
    [[nodiscard]] Item Require(const ItemPath& path) const;
    [[nodiscard]] Item RequireFile(const ItemPath& path, const std::string& revision) const;
    void RequireFolder(const ItemPath& path) const;
    /// The root and the home folder stay where they are.
    void RequireMovable(const ItemPath& path) const;
    void Record(const ItemPath& path, const Item& item);

    std::filesystem::path m_root;
    const StateFolder& m_state;
    Feed& m_feed;
    mutable std::shared_mutex m_mutex;
    ItemJournal m_journal;
};

/// What a client makes of a failure of the file system.
[[nodiscard]] ApiError ToApiError(const std::error_code& error);

} // namespace ApplianceParts
