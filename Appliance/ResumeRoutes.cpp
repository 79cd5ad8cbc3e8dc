#include "Identifier.h"
#include "ItemStore.h"
#include "JsonText.h"
#include "Multipart.h"
#include "Router.h"
#include "TextConversion.h"

#include <algorithm>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <set>

namespace ApplianceParts
{

namespace
{

constexpr const char* kFolder = "resume";
constexpr const char* kDescription = ".json";
constexpr std::chrono::seconds kLongestWait{5};

struct ResumableUpload
{
    std::string path; ///< of the item to create.
    std::uint64_t size = 0;
    ItemChanges changes;
    std::string revision; ///< of the item to replace; empty: any.
    std::optional<ItemTime> expiry;
};

std::string HeaderOf(const Request& request, const std::string& name)
{
    const auto value = request.header(name);
    if (!value)
        throw ApiError(400, ErrorId::HeaderMissing,
                       "the header " + name + " is missing: some proxies drop headers whose names have underscores");
    return *value;
}

// The stored description of an upload: the texts that the client sent.
Json::Value Describe(const Request& request, const ItemPath& path)
{
    auto value = JsonObject({{"path", path.Text()}, {"size", HeaderOf(request, "qd_file_size")}});
    constexpr std::pair<const char*, const char*> kTexts[] = {{"created", "qd_file_creation_time"},
                                                              {"modified", "qd_file_modification_time"},
                                                              {"attributes", "qd_attributes"},
                                                              {"revision", "qd_revision"},
                                                              {"expiry", "qd_expiry"}};
    for (const auto& [name, header] : kTexts)
        if (const auto text = request.header(header))
            value[name] = *text;
    return value;
}

ResumableUpload ReadUploadDescription(const Json::Value& value)
{
    const auto text = [&value](const char* name) { return value.isMember(name) ? std::optional(value[name].asString()) : std::nullopt; };
    return {text("path").value_or(""), ReadNumber(text("size").value_or(""), "qd_file_size"),
            ReadChanges(text("created"), text("modified"), text("attributes")), text("revision").value_or(""), ReadTime(text("expiry"))};
}

// Uploads in chunks. Each is a file with the received bytes and a JSON file with the description; they outlive the process. Only the holder
// of an upload's lease may access its bytes. Safe to use from several threads.
class ResumeStore
{
public:
    explicit ResumeStore(const StateFolder& state) : m_state(state)
    {
        for (const auto& entry : std::filesystem::directory_iterator(m_state.Folder(kFolder)))
        {
            const auto id = ToUtf8(entry.path().stem());
            if (entry.path().extension() == kDescription && !Load(id))
                Discard(id);
        }
    }

    // Exclusive use of an upload, which need not exist yet; released when the lease is destroyed.
    using Lease = std::shared_ptr<const void>;

    // Waits a little: the thread of a broken connection may be about to release its lease.
    Lease Acquire(const std::string& id)
    {
        std::unique_lock lock(m_mutex);
        if (!m_released.wait_for(lock, kLongestWait, [&] { return !m_busy.contains(id); }))
            throw ApiError(423, ErrorId::Busy, "another request works on this upload");
        m_busy.insert(id);
        return Lease(this, [this, id](const void*) {
            const std::lock_guard guard(m_mutex);
            m_busy.erase(id);
            m_released.notify_all();
        });
    }

    bool IsBusy(const std::string& id) const
    {
        const std::lock_guard guard(m_mutex);
        return m_busy.contains(id);
    }

    // Begins an empty upload; replaces an earlier one with this id.
    void Begin(const std::string& id, const Json::Value& description) const
    {
        (void)ReadUploadDescription(description); // refuses what is malformed
        (void)m_state.Folder(kFolder);
        Discard(id);
        if (!std::ofstream(BytesOf(id), std::ios::binary))
            throw ApiError(507, ErrorId::StorageFailed, "the upload cannot be stored");
        m_state.Write(FileName(id, kDescription), JsonLine(description));
    }

    ResumableUpload Get(const std::string& id, const ItemPath& path) const
    {
        auto upload = Load(id);
        if (!upload || upload->path != path.Text())
            throw ApiError(404, ErrorId::NotFound, "there is no such upload");
        return std::move(*upload);
    }

    std::filesystem::path BytesOf(const std::string& id) const { return m_state.Path(FileName(id, ".bytes")); }
    std::uint64_t Received(const std::string& id) const { return std::filesystem::file_size(BytesOf(id)); }

    void Discard(const std::string& id) const
    {
        std::filesystem::remove(m_state.Path(FileName(id, kDescription)));
        std::filesystem::remove(BytesOf(id));
    }

private:
    std::optional<ResumableUpload> Load(const std::string& id) const
    {
        const auto value = ParseJsonObject(m_state.Read(FileName(id, kDescription)).value_or(""));
        // When an upload becomes an item, its bytes are moved away first.
        if (!value || !std::filesystem::exists(BytesOf(id)))
            return std::nullopt;
        auto upload = ReadUploadDescription(*value);
        return upload.expiry && *upload.expiry < Now() ? std::nullopt : std::optional(std::move(upload));
    }

    static std::string FileName(const std::string& id, const char* extension) { return std::string(kFolder) + "/" + id + extension; }

    const StateFolder& m_state;
    mutable std::mutex m_mutex;
    std::condition_variable m_released;
    std::set<std::string> m_busy;
};

// The values of an item that does not exist yet: as the client sent them, because it continues with what it gets.
Item PendingItem(const ResumableUpload& upload, const ItemPath& path)
{
    return {.path = path.Text(),
            .name = path.Name(),
            .size = upload.size,
            .created = upload.changes.created.value_or(Now()),
            .modified = upload.changes.modified.value_or(Now()),
            .attributes = upload.changes.attributes.value_or(kNormalAttribute),
            .revision = upload.revision};
}

// One request to an upload.
class ResumeCall
{
public:
    ResumeCall(const Call& call, ResumeStore& uploads, ItemStore& items)
        : m_request(call.request),
          m_uploads(uploads),
          m_items(items),
          m_path(ItemPath::FromUrl(call.rest)),
          m_id(CheckedId(Find(call.request.query, "resume_id").value_or("")))
    {
    }

    Reply Post()
    {
        const auto newPath = m_request.header("qd_new_path");
        // Every chunk has these two headers. Check them first: without any header, a new upload would look like a continuation of an
        // unknown one.
        if (!newPath)
            for (const char* name : {"qd_offset", "qd_block_size"})
                (void)HeaderOf(m_request, name);
        const auto lease = m_uploads.Acquire(m_id);
        if (newPath)
            return Complete(ItemPath::FromText(*newPath));
        if (m_request.header("qd_start") == "true")
            m_uploads.Begin(m_id, Describe(m_request, m_path));
        const auto upload = m_uploads.Get(m_id, m_path);
        TakeChunk(upload);
        return m_request.header("qd_finish") == "true" ? Finish(upload, m_path, {.revision = upload.revision})
                                                       : ItemReply(PendingItem(upload, m_path));
    }

    Reply Status()
    {
        (void)m_uploads.Get(m_id, m_path);
        // Clients expect the lock as text, not as a JSON boolean.
        return JsonReply(
            {{"bytes_received", Json::UInt64(m_uploads.Received(m_id))}, {"is_locked", m_uploads.IsBusy(m_id) ? "true" : "false"}});
    }

    Reply Cancel()
    {
        const auto lease = m_uploads.Acquire(m_id);
        (void)m_uploads.Get(m_id, m_path);
        m_uploads.Discard(m_id);
        return JsonReply();
    }

private:
    // Ids are file names, so they have one form.
    static std::string CheckedId(const std::string& text)
    {
        const auto id = ParseIdentifier(text);
        if (!id)
            throw Malformed("the upload's id is missing or malformed");
        return ToNarrow(IdentifierText(*id));
    }

    // A chunk begins where the last one ended, or earlier if it is sent again. If a chunk ends early, the received bytes are kept.
    void TakeChunk(const ResumableUpload& upload)
    {
        const auto offset = ReadNumber(HeaderOf(m_request, "qd_offset"), "qd_offset");
        const auto size = ReadNumber(HeaderOf(m_request, "qd_block_size"), "qd_block_size");
        const auto received = m_uploads.Received(m_id);
        if (offset > received)
            throw ApiError(409, ErrorId::Incomplete,
                           "the chunk begins at " + std::to_string(offset) + ", but only " + std::to_string(received) + " bytes have come");
        if (offset + size > upload.size)
            throw Malformed("the chunk ends beyond the file's end");
        const auto bytes = m_uploads.BytesOf(m_id);
        if (offset < received)
            std::filesystem::resize_file(bytes, offset);
        (void)ReadUpload(m_request, bytes, std::ios::app);
        if (m_uploads.Received(m_id) - offset != size)
        {
            std::filesystem::resize_file(bytes, offset);
            throw Malformed("the chunk is not as long as its head says");
        }
    }

    Reply Complete(const ItemPath& newPath)
    {
        const auto upload = m_uploads.Get(m_id, m_path);
        const bool isSame = m_path == newPath;
        return Finish(upload, newPath, {.revision = isSame ? upload.revision : "", .mustBeNew = !isSame});
    }

    // If this is refused, the bytes are kept: they can still become an item at another path.
    Reply Finish(const ResumableUpload& upload, const ItemPath& path, const PutCondition& condition)
    {
        const auto received = m_uploads.Received(m_id);
        if (received != upload.size)
            throw ApiError(409, ErrorId::Incomplete,
                           "only " + std::to_string(received) + " of " + std::to_string(upload.size) + " bytes have come");
        const auto item = m_items.PutFile(path, m_uploads.BytesOf(m_id), upload.changes, condition);
        m_uploads.Discard(m_id);
        return ItemReply(item);
    }

    const Request& m_request;
    ResumeStore& m_uploads;
    ItemStore& m_items;
    ItemPath m_path;
    std::string m_id;
};

} // namespace

void AddResumeRoutes(Router& router, ItemStore& items, const StateFolder& state)
{
    const auto uploads = std::make_shared<ResumeStore>(state);
    const auto add = [&](const char* method, Reply (ResumeCall::*handle)()) {
        router.Add(method, "{api}/resume/upload/*", Access::Session,
                   [uploads, &items, handle](const Call& call) { return (ResumeCall(call, *uploads, items).*handle)(); });
    };
    add("POST", &ResumeCall::Post);
    add("GET", &ResumeCall::Status);
    add("DELETE", &ResumeCall::Cancel);
}

} // namespace ApplianceParts
