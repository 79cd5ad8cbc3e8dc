#include "ResumeStore.h"

#include <json/reader.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <fstream>

namespace ApplianceParts
{

namespace
{

constexpr const char* kFolder = "resume";
constexpr const char* kBytes = ".bytes";
constexpr const char* kDescription = ".json";
constexpr std::size_t kLongestId = 64;
constexpr std::chrono::seconds kLongestWait{5};

// Ids are names of files, so only what is one everywhere is let in; case does not tell them apart.
std::string CheckedId(const std::string& id)
{
    std::string lower = id;
    std::transform(id.begin(), id.end(), lower.begin(), [](unsigned char each) { return static_cast<char>(std::tolower(each)); });
    const bool isPlain = lower.find_first_not_of("0123456789abcdefghijklmnopqrstuvwxyz-") == std::string::npos;
    if (id.empty() || id.size() > kLongestId || !isPlain)
        throw ApiError(400, ErrorId::Malformed, "the upload's id is none");
    return lower;
}

void PutTime(Json::Value& value, const char* name, const std::optional<ItemTime>& time)
{
    if (time)
        value[name] = FormatTime(*time);
}

std::optional<ItemTime> TakeTime(const Json::Value& value, const char* name)
{
    return value.isMember(name) ? ParseTime(value[name].asString()) : std::nullopt;
}

Json::Value Describe(const ResumableUpload& upload)
{
    Json::Value value(Json::objectValue);
    value["path"] = upload.path;
    value["size"] = Json::UInt64(upload.size);
    value["revision"] = upload.revision;
    PutTime(value, "created", upload.changes.created);
    PutTime(value, "modified", upload.changes.modified);
    PutTime(value, "expiry", upload.expiry);
    if (upload.changes.attributes)
        value["attributes"] = *upload.changes.attributes;
    return value;
}

ResumableUpload Read(const Json::Value& value)
{
    ResumableUpload upload;
    upload.path = value["path"].asString();
    upload.size = value["size"].asUInt64();
    upload.revision = value["revision"].asString();
    upload.changes.created = TakeTime(value, "created");
    upload.changes.modified = TakeTime(value, "modified");
    upload.expiry = TakeTime(value, "expiry");
    if (value.isMember("attributes"))
        upload.changes.attributes = value["attributes"].asUInt();
    return upload;
}

} // namespace

ResumeStore::ResumeStore(const StateFolder& state) : m_state(state)
{
    DiscardExpired();
}

ResumeStore::Lease ResumeStore::Acquire(const std::string& id)
{
    const auto name = CheckedId(id);
    std::unique_lock lock(m_mutex);
    if (!m_released.wait_for(lock, kLongestWait, [&] { return !m_busy.contains(name); }))
        throw ApiError(423, ErrorId::Busy, "another request works on this upload");
    m_busy.insert(name);
    return Lease(this, [this, name](const void*) {
        const std::lock_guard guard(m_mutex);
        m_busy.erase(name);
        m_released.notify_all();
    });
}

bool ResumeStore::IsBusy(const std::string& id) const
{
    const std::lock_guard guard(m_mutex);
    return m_busy.contains(CheckedId(id));
}

void ResumeStore::Begin(const std::string& id, const ResumableUpload& upload)
{
    (void)m_state.Folder(kFolder);
    Discard(id);
    if (!std::ofstream(BytesOf(id), std::ios::binary))
        throw ApiError(507, ErrorId::StorageFailed, "the upload cannot be stored");
    m_state.Write(FileName(id, kDescription), ToText(Describe(upload)));
}

ResumableUpload ResumeStore::Get(const std::string& id, const ItemPath& path) const
{
    auto upload = Load(id);
    if (!upload || upload->path != path.Text())
        throw ApiError(404, ErrorId::NotFound, "there is no such upload");
    return std::move(*upload);
}

std::filesystem::path ResumeStore::BytesOf(const std::string& id) const
{
    return m_state.Path(FileName(id, kBytes));
}

std::uint64_t ResumeStore::Received(const std::string& id) const
{
    return std::filesystem::file_size(BytesOf(id));
}

void ResumeStore::Discard(const std::string& id) const
{
    std::filesystem::remove(m_state.Path(FileName(id, kDescription)));
    std::filesystem::remove(BytesOf(id));
}

std::optional<ResumableUpload> ResumeStore::Load(const std::string& id) const
{
    const auto text = m_state.Read(FileName(id, kDescription));
    // The bytes go first when they become an item.
    if (!text || !std::filesystem::exists(BytesOf(id)))
        return std::nullopt;
    Json::Value value;
    const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
    if (!reader->parse(text->data(), text->data() + text->size(), &value, nullptr) || !value.isObject())
        return std::nullopt;
    const auto upload = Read(value);
    return upload.expiry && *upload.expiry < Now() ? std::nullopt : std::optional(upload);
}

std::string ResumeStore::FileName(const std::string& id, const char* extension)
{
    return std::string(kFolder) + "/" + CheckedId(id) + extension;
}

void ResumeStore::DiscardExpired() const
{
    for (const auto& entry : std::filesystem::directory_iterator(m_state.Folder(kFolder)))
    {
        const auto id = ToUtf8(entry.path().stem());
        if (entry.path().extension() == kDescription && !Load(id))
            Discard(id);
    }
}

} // namespace ApplianceParts
