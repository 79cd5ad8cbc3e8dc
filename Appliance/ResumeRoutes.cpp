#include "Identifier.h"
#include "JsonText.h"
#include "Routes.h"
#include "TextConversion.h"

#include <algorithm>
#include <fstream>

namespace ApplianceParts
{

namespace
{

constexpr std::chrono::seconds kLongestWait{5};

// The optional headers of a request that begins an upload, with their names in the stored description.
constexpr std::pair<const char*, const char*> kDescribing[] = {{"creation_time", "qd_file_creation_time"},
                                                               {"modification_time", "qd_file_modification_time"},
                                                               {"attributes", "qd_attributes"},
                                                               {"revision", "qd_revision"}};

std::string HeaderOf(const Request& request, const std::string& name)
{
    if (const auto value = request.header(name))
        return *value;
    throw ApiError(400, ErrorId::HeaderMissing,
                   "the header " + name + " is missing: some proxies drop headers whose names have underscores");
}

// One request to an upload in chunks. The upload is a file with the received bytes and a JSON file with the description, which outlive the
// process. Only the holder of the upload's lease may access its bytes.
class ResumeCall
{
public:
    explicit ResumeCall(const Call& call)
        : m_services(call.services),
          m_request(call.request),
          m_path(ItemPath::FromUrl(call.rest)),
          m_id(CheckedId(Find(call.query, "resume_id").value_or(""))),
          m_bytesName("resume/" + m_id + ".bytes"),
          m_descriptionName("resume/" + m_id + ".json"),
          m_bytes(m_services.state.Path(m_bytesName))
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
        const auto lease = Acquire();
        if (newPath)
        {
            const auto target = ItemPath::FromText(*newPath);
            Load();
            return Finish(target, m_path == target ? std::optional(m_revision) : std::nullopt);
        }
        if (m_request.header("qd_start") == "true")
            Begin();
        else
            Load();
        TakeChunk();
        if (m_request.header("qd_finish") == "true")
            return Finish(m_path, m_revision);
        // An item that does not exist yet has the values that the client sent, because the client continues with what it gets.
        return ItemReply({.path = m_path.Text(),
                          .size = m_size,
                          .created = m_changes.created.value_or(Now()),
                          .modified = m_changes.modified.value_or(Now()),
                          .attributes = m_changes.attributes.value_or(kNormalAttribute),
                          .revision = m_revision});
    }

    Reply Status()
    {
        Load();
        // Clients expect the lock as text, not as a JSON boolean.
        return JsonReply(
            {{"bytes_received", Json::UInt64(Received())}, {"is_locked", m_services.uploads.IsTaken(m_id) ? "true" : "false"}});
    }

    Reply Cancel()
    {
        const auto lease = Acquire();
        Load();
        Discard();
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

    // Waits a little: the thread of a broken connection may be about to release the upload.
    std::shared_ptr<const void> Acquire()
    {
        if (auto lease = m_services.uploads.Acquire(m_id, kLongestWait))
            return lease;
        throw ApiError(423, ErrorId::Busy, "another request works on this upload");
    }

    // Begins an empty upload; replaces an earlier one with this id.
    void Begin()
    {
        auto description = JsonObject({{"path", m_path.Text()}, {"size", HeaderOf(m_request, "qd_file_size")}});
        for (const auto& [name, header] : kDescribing)
            if (const auto text = m_request.header(header))
                description[name] = *text;
        Take(description);
        Discard();
        m_services.state.Write(m_bytesName, "");
        m_services.state.Write(m_descriptionName, JsonLine(description));
    }

    void Load()
    {
        const auto description = ParseJsonObject(m_services.state.Read(m_descriptionName).value_or(""));
        // When an upload becomes an item, its bytes are moved away first.
        if (!description || !std::filesystem::exists(m_bytes) || (*description)["path"] != m_path.Text())
            throw ApiError(404, ErrorId::NotFound, "there is no such upload");
        Take(*description);
    }

    // Reads the texts that the client sent. Throws ApiError if one is malformed.
    void Take(const Json::Value& description)
    {
        Fields texts;
        for (const auto& name : description.getMemberNames())
            texts.emplace(name, description[name].asString());
        m_size = ReadNumber(Require(texts, "size"), "qd_file_size");
        m_changes = ReadChanges(texts);
        m_revision = Find(texts, "revision").value_or("");
    }

    void Discard() const
    {
        std::filesystem::remove(m_services.state.Path(m_descriptionName));
        std::filesystem::remove(m_bytes);
    }

    std::uint64_t Received() const { return std::filesystem::file_size(m_bytes); }

    // A chunk begins where the last one ended, or earlier if it is sent again. If the connection breaks, what is new is kept.
    void TakeChunk()
    {
        const auto offset = ReadNumber(HeaderOf(m_request, "qd_offset"), "qd_offset");
        const auto size = ReadNumber(HeaderOf(m_request, "qd_block_size"), "qd_block_size");
        const auto received = Received();
        if (offset > received)
            throw ApiError(409, ErrorId::Incomplete,
                           "the chunk begins at " + std::to_string(offset) + ", but only " + std::to_string(received) + " bytes have come");
        if (offset + size > m_size)
            throw Malformed("the chunk ends beyond the file's end");
        if (offset < received)
            return TakeAgain(offset, size);
        try
        {
            (void)ReadUpload(m_request, m_bytes, std::ios::app);
        }
        catch (...)
        {
            std::filesystem::resize_file(m_bytes, std::min(Received(), offset + size)); // a client may send more than it announced
            throw;
        }
        if (Received() - offset != size)
        {
            std::filesystem::resize_file(m_bytes, offset);
            throw WrongLength();
        }
    }

    // The chunk may be a late one, of a connection that the client has closed. It never shortens the upload: a whole chunk overwrites its
    // range, and a part of one is dropped.
    void TakeAgain(std::uint64_t offset, std::uint64_t size)
    {
        const TemporaryFile chunk(m_services.state);
        (void)ReadUpload(m_request, chunk.Path());
        if ((std::filesystem::exists(chunk.Path()) ? std::filesystem::file_size(chunk.Path()) : 0) != size)
            throw WrongLength();
        if (size == 0)
            return;
        std::fstream bytes(m_bytes, std::ios::binary | std::ios::in | std::ios::out);
        bytes.exceptions(std::ios::failbit | std::ios::badbit);
        bytes.seekp(static_cast<std::streamoff>(offset));
        bytes << std::ifstream(chunk.Path(), std::ios::binary).rdbuf() << std::flush;
    }

    static ApiError WrongLength() { return Malformed("the chunk is not as long as its head says"); }

    // If the store refuses the item, the bytes are kept: they can still become an item at another path.
    Reply Finish(const ItemPath& path, const std::optional<std::string>& revision)
    {
        const auto received = Received();
        if (received != m_size)
            throw ApiError(409, ErrorId::Incomplete,
                           "only " + std::to_string(received) + " of " + std::to_string(m_size) + " bytes have come");
        const auto item = m_services.items.PutFile(path, m_bytes, m_changes, revision);
        Discard();
        return ItemReply(item);
    }

    Services& m_services;
    const Request& m_request;
    ItemPath m_path;
    std::string m_id;
    std::string m_bytesName;
    std::string m_descriptionName;
    std::filesystem::path m_bytes;

    // The description.
    std::uint64_t m_size = 0;
    ItemChanges m_changes;
    std::string m_revision; // of the item to replace; empty: any.
};

template <Reply (ResumeCall::*handle)()> Reply Answer(const Call& call)
{
    return (ResumeCall(call).*handle)();
}

} // namespace

std::span<const Route> ResumeRoutes()
{
    static constexpr Route kRoutes[] = {{"POST", "{api}/resume/upload/*", Access::Session, Answer<&ResumeCall::Post>},
                                        {"GET", "{api}/resume/upload/*", Access::Session, Answer<&ResumeCall::Status>},
                                        {"DELETE", "{api}/resume/upload/*", Access::Session, Answer<&ResumeCall::Cancel>}};
    return kRoutes;
}

} // namespace ApplianceParts
