#include "ItemForm.h"
#include "ItemStore.h"
#include "Multipart.h"
#include "ResumeStore.h"
#include "Routes.h"

#include <fstream>

namespace ApplianceParts
{

namespace
{

std::string IdOf(const Call& call)
{
    const auto id = Find(call.request.query, "resume_id");
    if (!id)
        throw ApiError(400, ErrorId::Malformed, "the upload's id is missing");
    return *id;
}

std::string HeaderOf(const Request& request, const std::string& name)
{
    const auto value = request.header(name);
    if (!value)
        throw ApiError(400, ErrorId::HeaderMissing,
                       "the header " + name + " is missing: some proxies drop headers whose names have underscores");
    return *value;
}

bool IsSet(const Request& request, const std::string& name)
{
    return request.header(name) == "true";
}

std::optional<ItemTime> TimeOf(const Request& request, const std::string& name)
{
    const auto text = request.header(name);
    return text ? ReadTime(*text) : std::nullopt;
}

ResumableUpload ReadUploadHead(const Request& request, const ItemPath& path)
{
    ResumableUpload upload;
    upload.path = path.Text();
    upload.size = ReadNumber(HeaderOf(request, "qd_file_size"), "qd_file_size");
    upload.changes.created = TimeOf(request, "qd_file_creation_time");
    upload.changes.modified = TimeOf(request, "qd_file_modification_time");
    if (const auto attributes = request.header("qd_attributes"))
        upload.changes.attributes = ReadAttributes(*attributes);
    upload.revision = request.header("qd_revision").value_or("");
    upload.expiry = TimeOf(request, "qd_expiry");
    return upload;
}

// What the client is told of an item that is not there yet: all as it sent it, since it goes on from what it is told.
Item PendingItem(const ResumableUpload& upload, const ItemPath& path)
{
    Item item;
    item.path = path.Text();
    item.name = path.Name();
    item.size = upload.size;
    item.created = upload.changes.created.value_or(Now());
    item.modified = upload.changes.modified.value_or(Now());
    item.attributes = upload.changes.attributes.value_or(kNormalAttribute);
    item.revision = upload.revision;
    return item;
}

class ResumeHandlers
{
public:
    ResumeHandlers(ResumeStore& uploads, ItemStore& items) : m_uploads(uploads), m_items(items) {}

    Reply Post(const Call& call)
    {
        const auto id = IdOf(call);
        const auto path = ItemPath::FromUrl(call.rest);
        const auto newPath = call.request.header("qd_new_path");
        // Every chunk has these two. Looked for first: without any header a new upload looks like the rest of one that nobody began.
        if (!newPath)
            for (const char* name : {"qd_offset", "qd_block_size"})
                (void)HeaderOf(call.request, name);
        const auto lease = m_uploads.Acquire(id);
        if (newPath)
            return Complete(id, path, ItemPath::FromText(*newPath));

        if (IsSet(call.request, "qd_start"))
            m_uploads.Begin(id, ReadUploadHead(call.request, path));
        const auto upload = m_uploads.Get(id, path);
        TakeChunk(call.request, id, upload);
        if (!IsSet(call.request, "qd_finish"))
            return ItemReply(PendingItem(upload, path));
        return Finish(id, upload, path, {upload.revision, false});
    }

    Reply Status(const Call& call)
    {
        const auto id = IdOf(call);
        (void)m_uploads.Get(id, ItemPath::FromUrl(call.rest));
        Json::Value reply(Json::objectValue);
        reply["bytes_received"] = Json::UInt64(m_uploads.Received(id));
        // Clients read the text, not a JSON boolean.
        reply["is_locked"] = m_uploads.IsBusy(id) ? "true" : "false";
        return JsonReply(reply);
    }

    Reply Cancel(const Call& call)
    {
        const auto id = IdOf(call);
        const auto lease = m_uploads.Acquire(id);
        (void)m_uploads.Get(id, ItemPath::FromUrl(call.rest));
        m_uploads.Discard(id);
        return JsonReply(Json::Value(Json::objectValue));
    }

private:
    // A chunk begins where the last one ended, or before: then it was sent again. Of a chunk that breaks off, what has come stays.
    void TakeChunk(const Request& request, const std::string& id, const ResumableUpload& upload)
    {
        const auto offset = ReadNumber(HeaderOf(request, "qd_offset"), "qd_offset");
        const auto size = ReadNumber(HeaderOf(request, "qd_block_size"), "qd_block_size");
        const auto received = m_uploads.Received(id);
        if (offset > received)
            throw ApiError(409, ErrorId::Incomplete,
                           "the chunk begins at " + std::to_string(offset) + ", but only " + std::to_string(received) + " bytes have come");
        if (offset + size > upload.size)
            throw ApiError(400, ErrorId::Malformed, "the chunk ends beyond the file's end");
        const auto bytes = m_uploads.BytesOf(id);
        if (offset < received)
            std::filesystem::resize_file(bytes, offset);

        std::ofstream output;
        (void)ReadUpload(request, [&](const Fields&) -> std::ostream& {
            output.open(bytes, std::ios::binary | std::ios::app);
            return output;
        });
        output.close();
        if (m_uploads.Received(id) - offset != size)
        {
            std::filesystem::resize_file(bytes, offset);
            throw ApiError(400, ErrorId::Malformed, "the chunk is not as long as its head says");
        }
    }

    Reply Complete(const std::string& id, const ItemPath& path, const ItemPath& newPath)
    {
        const auto upload = m_uploads.Get(id, path);
        const bool isSame = path == newPath;
        return Finish(id, upload, newPath, {isSame ? upload.revision : "", !isSame});
    }

    // Where this is refused, the bytes stay: they can still become an item of another path.
    Reply Finish(const std::string& id, const ResumableUpload& upload, const ItemPath& path, const PutCondition& condition)
    {
        const auto received = m_uploads.Received(id);
        if (received != upload.size)
            throw ApiError(409, ErrorId::Incomplete,
                           "only " + std::to_string(received) + " of " + std::to_string(upload.size) + " bytes have come");
        const auto item = m_items.PutFile(path, m_uploads.BytesOf(id), upload.changes, condition);
        m_uploads.Discard(id);
        return ItemReply(item);
    }

    ResumeStore& m_uploads;
    ItemStore& m_items;
};

} // namespace

void AddResumeRoutes(Router& router, ResumeStore& uploads, ItemStore& items)
{
    const auto handlers = std::make_shared<ResumeHandlers>(uploads, items);
    constexpr const char* kPath = "/resume/upload";
    router.Add("POST", Place::Api, kPath, Depth::Subtree, Access::Session, [handlers](const Call& call) { return handlers->Post(call); });
    router.Add("GET", Place::Api, kPath, Depth::Subtree, Access::Session, [handlers](const Call& call) { return handlers->Status(call); });
    router.Add("DELETE", Place::Api, kPath, Depth::Subtree, Access::Session,
               [handlers](const Call& call) { return handlers->Cancel(call); });
}

} // namespace ApplianceParts
