#include "ItemStore.h"

#include "System.h"

#include <algorithm>

namespace ApplianceParts
{

namespace
{

namespace fs = std::filesystem;

using namespace std::chrono;

using FileTime = fs::file_time_type;

constexpr const char* kFolderStamp = "0";

// How far the file clock is ahead of the system clock. Standard libraries differ in the epoch and in the functions that convert, but it is
// always a whole number of hours.
hours FileClockLead()
{
    static const auto lead = round<hours>(FileTime::clock::now().time_since_epoch() - system_clock::now().time_since_epoch());
    return lead;
}

ApiError AlreadyExists(const ItemPath& path)
{
    return {409, ErrorId::AlreadyExists, "the item " + path.Text() + " exists already"};
}

void CheckRevision(const Item& item, const std::string& revision)
{
    if (!revision.empty() && revision != item.revision)
        throw ApiError(409, ErrorId::RevisionConflict, "the item has another revision", ToJson(item));
}

// A folder's own time changes with its content; a file's only with the file. A time that the standard library cannot express, from 2262 on,
// becomes its earliest. The size is -1 if there is nothing.
Item Describe(const ItemPath& path, const fs::path& file, bool isFolder, const Item* record)
{
    std::error_code failed;
    const auto time = ItemTime(floor<ItemTime::duration>(fs::last_write_time(file, failed).time_since_epoch()) - FileClockLead());
    const auto size = isFolder && failed != std::errc::no_such_file_or_directory ? 0 : fs::file_size(file, failed);
    const auto stamp = isFolder ? kFolderStamp : "f" + std::to_string(time.time_since_epoch().count()) + "-" + std::to_string(size);
    // What is recorded of a file does not hold for a folder in its place, nor the reverse.
    const bool isRecorded = record != nullptr && isFolder == (record->stamp == kFolderStamp);
    Item item = isRecorded ? *record : Item{.created = time, .attributes = isFolder ? kDirectoryAttribute : kNormalAttribute};
    if (item.stamp != stamp)
    {
        item.modified = time;
        item.revision = item.stamp = stamp;
    }
    item.path = path.Text();
    item.isFolder = isFolder;
    item.size = size;
    return item;
}

void Apply(const ItemChanges& changes, Item& item)
{
    item.created = changes.created.value_or(item.created);
    item.modified = changes.modified.value_or(item.modified);
    item.attributes = changes.attributes.value_or(item.attributes);
    item.attributes = item.isFolder ? item.attributes | kDirectoryAttribute : item.attributes & ~kDirectoryAttribute;
}

// Leaves a file as it is if file systems may be unable to store the time. A folder's time is its content's.
void SetFileTime(const fs::path& file, ItemTime time)
{
    std::error_code ignored;
    if (fs::is_regular_file(file, ignored) && time >= sys_days(year(1970) / January / 1) && time < sys_days(year(2262) / January / 1))
        fs::last_write_time(file, FileTime(duration_cast<FileTime::duration>(time.time_since_epoch() + FileClockLead())), ignored);
}

} // namespace

ItemStore::ItemStore(fs::path root, const StateFolder& state, Feed& feed)
    : m_root(std::move(root)), m_state(state), m_feed(feed), m_journal(state)
{
    fs::create_directory(Locate(ItemPath::FromText(kHomePath)));
}

Item ItemStore::Get(const ItemPath& path) const
{
    const std::shared_lock lock(m_mutex);
    return Require(path);
}

std::pair<Item, std::vector<Item>> ItemStore::List(const ItemPath& path) const
{
    const std::shared_lock lock(m_mutex);
    RequireFolder(path);
    std::vector<Item> children;
    for (const auto& entry : fs::directory_iterator(Locate(path)))
    {
        const auto text = entry.path().filename().u8string();
        const std::string name(text.begin(), text.end());
        if (auto child = ItemPath::IsName(name) ? Look(path.Child(name), true) : std::nullopt)
            children.push_back(std::move(*child));
    }
    std::sort(children.begin(), children.end(), [](const Item& left, const Item& right) { return left.path < right.path; });
    return {Require(path), children};
}

std::pair<Item, FileContent> ItemStore::Open(const ItemPath& path, const std::string& revision, std::uint64_t skip) const
{
    const std::shared_lock lock(m_mutex);
    const auto item = Require(path);
    if (item.isFolder)
        throw ApiError(409, ErrorId::WrongKind, "the item is a folder");
    CheckRevision(item, revision);
    const auto offset = std::min(skip, item.size);
    return {item, {System::OpenFile(Locate(path), offset), item.size - offset}};
}

Item ItemStore::CreateFolder(const ItemPath& path)
{
    const std::unique_lock lock(m_mutex);
    RequireFolder(path.Parent());
    const auto now = Now();
    const Item item{
        .path = path.Text(), .isFolder = true, .created = now, .modified = now, .attributes = kDirectoryAttribute, .stamp = kFolderStamp};
    return Record(item, "create", {}, [&] {
        if (path.IsRoot() || !fs::create_directory(Locate(path)))
            throw AlreadyExists(path);
    });
}

Item ItemStore::SetAttributes(const ItemPath& path, const ItemChanges& changes)
{
    const std::unique_lock lock(m_mutex);
    auto item = Require(path);
    const auto file = Locate(path);
    const auto before = Describe(path, file, item.isFolder, nullptr).modified;
    Apply(changes, item);
    SetFileTime(file, item.modified); // shows what the file system makes of it
    item.stamp = Describe(path, file, item.isFolder, nullptr).stamp;
    SetFileTime(file, before);
    return Record(item, "update", item.path, [&] { SetFileTime(file, item.modified); });
}

Item ItemStore::Move(const ItemPath& from, const ItemPath& to, bool mayOverwrite)
{
    const std::unique_lock lock(m_mutex);
    const auto source = Require(from);
    RequireMovable(from);
    if (to.IsRoot() || to.IsBelow(from))
        throw ApiError(400, ErrorId::NameNotAllowed, "the item cannot be moved there");
    if (from == to)
        return source;
    RequireFolder(to.Parent());
    const auto target = LookForTarget(to);
    // On a file system that ignores case, a change of case finds the item itself.
    if (target && !fs::equivalent(Locate(from), Locate(to)))
    {
        if (!mayOverwrite)
            throw AlreadyExists(to);
        if (source.isFolder || target->isFolder)
            throw ApiError(409, ErrorId::WrongKind, "a folder is not overwritten, and overwrites nothing");
    }
    m_journal.Move(from.Text(), to.Text(), [&] { System::Replace(Locate(from), Locate(to), m_state.NewTemporary()); });
    m_feed.Publish(from.Parent() == to.Parent() ? "update" : "move", from.Text(), to.Text());
    return Require(to);
}

void ItemStore::Remove(const ItemPath& path, const std::string& revision)
{
    const TemporaryFile grave(m_state); // removing a large folder takes time, and is done without the lock
    const std::unique_lock lock(m_mutex);
    const auto item = Require(path);
    RequireMovable(path);
    CheckRevision(item, revision);
    m_journal.Remove(path.Text(), [&] { fs::rename(Locate(path), grave.Path()); });
    m_feed.Publish("delete", path.Text());
}

Item ItemStore::PutFile(const ItemPath& path, const fs::path& content, const ItemChanges& changes,
                        const std::optional<std::string>& revision)
{
    const std::unique_lock lock(m_mutex);
    RequireFolder(path.Parent());
    const auto existing = LookForTarget(path);
    if (path.IsRoot() || (existing && existing->isFolder))
        throw ApiError(409, ErrorId::WrongKind, "the item is a folder");
    if (existing && !revision)
        throw AlreadyExists(path);
    if (existing)
        CheckRevision(*existing, *revision);

    Item item = Describe(path, content, false, nullptr);
    item.created = existing ? existing->created : item.created;
    item.attributes = existing ? existing->attributes : item.attributes;
    Apply(changes, item);
    SetFileTime(content, item.modified);
    item.stamp = Describe(path, content, false, nullptr).stamp;
    return Record(item, "upload", {}, [&] { System::Replace(content, Locate(path), m_state.NewTemporary()); });
}

// Links are not followed and not shown to clients, nor is the state folder, by any of the names that a file system has for it.
std::optional<Item> ItemStore::Look(const ItemPath& path, bool isInKnownFolder) const
{
    for (auto at = path; !at.IsRoot(); at = isInKnownFolder ? ItemPath() : at.Parent())
    {
        std::error_code none;
        if ((at != path && !fs::is_directory(fs::symlink_status(Locate(at)))) ||
            (at.Parent().IsRoot() && fs::equivalent(Locate(at), m_root / StateFolder::kName, none)))
            return std::nullopt;
    }
    const auto file = Locate(path);
    const auto status = path.IsRoot() ? fs::status(file) : fs::symlink_status(file);
    if (!fs::is_directory(status) && !fs::is_regular_file(status))
        return std::nullopt;
    auto item = Describe(path, file, fs::is_directory(status), m_journal.Find(path.Text()));
    return item.size == static_cast<std::uintmax_t>(-1) ? std::nullopt : std::optional(std::move(item)); // it has gone meanwhile
}

std::optional<Item> ItemStore::LookForTarget(const ItemPath& path) const
{
    auto item = Look(path);
    if (!item && fs::exists(fs::symlink_status(Locate(path))))
        throw AlreadyExists(path);
    return item;
}

Item ItemStore::Require(const ItemPath& path) const
{
    auto item = Look(path);
    if (!item)
        throw ApiError(404, ErrorId::NotFound, "there is no item " + path.Text());
    return std::move(*item);
}

void ItemStore::RequireFolder(const ItemPath& path) const
{
    if (!Require(path).isFolder)
        throw ApiError(409, ErrorId::WrongKind, "the item " + path.Text() + " is no folder");
}

void ItemStore::RequireMovable(const ItemPath& path) const
{
    // Compared as files: the home folder has several names on a file system that ignores case.
    std::error_code none;
    if (path.IsRoot() || fs::equivalent(Locate(path), Locate(ItemPath::FromText(kHomePath)), none))
        throw ApiError(403, ErrorId::NameNotAllowed, "the folder " + path.Text() + " cannot be deleted, moved or renamed");
}

fs::path ItemStore::Locate(const ItemPath& path) const
{
    auto file = path.IsRoot() ? m_root : m_root / ToFilePath(path.Text().substr(1));
    return file.make_preferred();
}

Item ItemStore::Record(Item item, const std::string& action, const std::string& target, const std::function<void()>& change)
{
    m_journal.Set(item, change);
    m_feed.Publish(action, item.path, target);
    return item;
}

ApiError ToApiError(const std::error_code& error)
{
    if (error == std::errc::no_such_file_or_directory || error == std::errc::not_a_directory)
        return {404, ErrorId::NotFound, "there is no such item"};
    if (error == std::errc::filename_too_long || error == std::errc::illegal_byte_sequence || error == std::errc::invalid_argument)
        return {400, ErrorId::NameNotAllowed, "the name is not allowed: " + error.message()};
    if (error == std::errc::permission_denied || error == std::errc::operation_not_permitted || error == std::errc::read_only_file_system)
        return {403, ErrorId::StorageFailed, "the item cannot be used: " + error.message()};
    if (error == std::errc::file_exists || error == std::errc::directory_not_empty || error == std::errc::is_a_directory)
        return {409, ErrorId::AlreadyExists, error.message()};
    if (error == std::errc::no_space_on_device || error == std::errc::file_too_large || error == std::errc::io_error ||
        error == std::io_errc::stream)
        return {507, ErrorId::StorageFailed, error.message()};
    return {500, ErrorId::StorageFailed, error.message()};
}

} // namespace ApplianceParts
