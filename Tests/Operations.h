#pragma once

/// @file
/// Operations as values and their caller; replies made from texts, and records shown as texts.

#include "Attributes.h"
#include "Instance.h"
#include "Mapping.h"
#include "NotificationAction.h"
#include "Replies/JsonLibrary.h"
#include "TextConversion.h"
#include "TransferSupport.h"

#include "QuendraHttp/ResultMeanings.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <list>
#include <map>
#include <memory>
#include <stdexcept>
#include <vector>

using Item = std::shared_ptr<IServerAttributes>;

inline Item MakeItem(std::int64_t size = 100, const std::string& revision = "7")
{
    auto item = std::make_shared<CAttributes<CServerItemAttributesBase>>();
    item->SetCreationTime(CAttributeTime("2020-01-02T03:04:05.6Z"));
    item->SetLastWriteTime(CAttributeTime("2021-01-02T03:04:05.6Z"));
    item->SetAttributes(32);
    item->SetSize(size);
    item->SetRevision(revision);
    return item;
}

/// The server's answer to an upload.
inline const std::string kReply = R"({"name":"new.txt","revision":"8","creation_time":"2020-01-02T03:04:05.6Z",)"
                                  R"("modification_time":"2020-01-02T03:04:05.6Z","size":1,"attributes":32})";

/// A reply with a text as its body. The text must outlive it.
inline ResponseBuffer AsReply(std::string& text)
{
    return {text.data(), text.size()};
}

inline Json::Value ParseText(std::string text)
{
    Json::Value value;
    if (!ParseJson(AsReply(text), Comments::Skip, value))
        throw std::runtime_error("Not JSON: " + text);
    return value;
}

/// The cases of a file in Tests/Cases, which may hold comments.
inline Json::Value ReadCases(const char* path)
{
    std::ifstream file(path, std::ios::binary);
    return ParseText({std::istreambuf_iterator<char>(file), {}});
}

/// A list that deletes its records, as every caller of the library has to.
template <typename List> struct Owned : List
{
    Owned() = default;
    ~Owned()
    {
        for (const auto* record : *this)
            delete record;
    }
    Owned(Owned&& other) noexcept { this->swap(other); }
    Owned& operator=(Owned&& other) noexcept
    {
        this->swap(other);
        return *this;
    }
};
using Actions = Owned<std::list<CNotificationAction*>>;
using Mappings = Owned<std::vector<CMapping*>>;

/// An action on one line: type, value, second value.
inline std::string Describe(const CNotificationAction& action)
{
    return std::to_string(static_cast<std::int32_t>(action.Type)) + " '" + ToNarrow(action.Value) + "' '" + ToNarrow(action.Value2) + '\'';
}

/// A mapping on one line: server path, description, local path, permissions; mode, status, type, sharing.
inline std::string Describe(const CMapping& mapping)
{
    std::string text;
    for (const std::wstring* part : {&mapping.ServerPath, &mapping.Description, &mapping.LocalPath, &mapping.Permissions})
        text += '\'' + ToNarrow(*part) + "' ";
    return text + std::to_string(static_cast<std::uint32_t>(mapping.Mode)) + ' ' +
           std::to_string(static_cast<std::uint32_t>(mapping.Status)) + ' ' + std::to_string(static_cast<std::uint32_t>(mapping.Type)) +
           ' ' + std::to_string(mapping.AllowSharing);
}

/// A caller's variables. It converts to each output, so that it can be passed as any of them.
struct Caller
{
    Item item = MakeItem();
    CancelEvent cancel;
    std::shared_ptr<IProgressCallback> progress;
    std::wstring local = L"local";
    std::wstring signature = L"sig";

    Item given; ///< null: the operation has left it as it was.
    std::int64_t offset = -1;
    ServerItemList children;
    Actions actions;
    Mappings mappings;
    std::wstring text;

    operator Item&() { return given; }
    operator std::list<CNotificationAction*>&() { return actions; }
    operator std::vector<CMapping*>&() { return mappings; }
    operator std::wstring&() { return text; }

    /// All outputs, separated by commas; items by their names.
    [[nodiscard]] std::string Outputs() const
    {
        std::string outputs;
        const auto add = [&outputs](const std::string& each) { outputs += outputs.empty() || each.empty() ? each : ", " + each; };
        for (const CNotificationAction* action : actions)
            add(Describe(*action));
        for (const CMapping* mapping : mappings)
            add(Describe(*mapping));
        for (const Item& child : children)
            add(ToNarrow(child->GetName()));
        add(given ? ToNarrow(given->GetName()) : "");
        add(ToNarrow(text));
        return outputs;
    }
};

using Operation = std::function<ResultCode(Api&, Caller&)>;

/// An operation with its arguments. The output, if it has one, is its last parameter.
template <typename... Parameters, typename... Arguments>
Operation Call(ResultCode (Api::*operation)(Parameters...), const Arguments&... arguments)
{
    return [=](Api& api, Caller& caller) {
        if constexpr (sizeof...(Arguments) < sizeof...(Parameters))
            return (api.*operation)(arguments..., caller);
        else
            return (api.*operation)(arguments...);
    };
}

/// Whether an operation may return the code.
inline bool IsDocumented(ResultCode code)
{
    code = (code & 0xFFFF0000) == 0x80070000 ? code & 0xFFFF : code;
    if (code == 10054) // Wine passes the socket's own error on: a reset
        return true;
    return Result::IsRefusal(code) || std::ranges::find(Result::kMeanings, code, &Result::Meaning::code) != std::end(Result::kMeanings);
}

inline Operation List(const std::wstring& path)
{
    return [=](Api& api, Caller& caller) { return api.GetPathListing(path, caller.children, caller.given, nullptr); };
}

inline ResultCode ShakeHands(Api& api, Caller&)
{
    std::uint32_t mode = 0;
    std::uint32_t value = 0;
    return api.Init(mode, value);
}

/// The text is the policy, then "|" and the session token unless that is still "old".
inline Operation LogIn(const VersionNumber& version = {}, const VersionNumber& platform = {})
{
    return [=](Api& api, Caller& caller) {
        std::uint32_t value = 0;
        const ResultCode code = api.Login(L"ann", L"p&ss", L"device-token", L"host", caller.text, value, version, platform);
        std::wstring token;
        static_cast<void>(api.GetSessionToken(token));
        caller.text += token == L"old" ? L"" : L"|" + token;
        return code;
    };
}

/// The item of all operations where no other is named.
inline const std::wstring kPath = L"/d/a.txt";

/// Operations that move no file.
inline std::map<std::string, Operation> PathOperations()
{
    return {{"create", Call(&Api::CreateFolder, L"/d/new")},
            {"get", Call(&Api::GetPathAttributes, kPath)},
            {"set", Call(&Api::SetPathAttributes, kPath, MakeItem(7, ""))},
            {"delete", Call(&Api::DeletePath, kPath, MakeItem(7, "4"))},
            {"rename", Call(&Api::RenamePath, kPath, L"/d/b c.txt", 0U)},
            {"move", Call(&Api::RenamePath, kPath, L"/e/a.txt", 1U)},
            {"list", List(L"/d")},
            {"changes", Call(&Api::GetChanges)},
            {"mappings", Call(&Api::GetRemoteFolderMap)},
            {"share", Call(&Api::GenerateLink, std::make_shared<ShareRequest>())},
            {"audit", Call(&Api::PublishSyncStats, "x")},
            {"wipe", Call(&Api::AcknowledgeRemoteWipe, L"ann", L"id")},
            {"version", Call(&Api::Version)},
            {"login", LogIn()},
            {"register", Call(&Api::Register, L"ann", L"host")}};
}

inline constexpr Quendra::UploadId kUpload{0x0F8FAD5B, 0xD9CB, 0x469F, {0xA1, 0x65, 0x70, 0x86, 0x77, 0x28, 0x95, 0x0E}};

/// An operation that replaces the caller's item by the one of the reply.
inline Operation ReplacingItem(Operation send)
{
    return [send = std::move(send)](Api& api, Caller& caller) {
        const auto* const before = caller.item.get();
        const ResultCode result = send(api, caller);
        caller.given = caller.item.get() == before ? nullptr : caller.item;
        return result;
    };
}

inline Operation Upload(std::uint32_t delta, const std::wstring& path = kPath)
{
    return ReplacingItem(
        [=](Api& api, Caller& caller) { return api.UploadFile(caller.local, path, caller.item, &delta, caller.cancel, caller.progress); });
}

inline Operation Chunk(std::int64_t offset, std::int64_t length, std::int32_t begin = 0, const std::wstring& path = kPath,
                       const Quendra::UploadId& id = kUpload)
{
    return ReplacingItem([=](Api& api, Caller& caller) {
        std::int64_t chunk = length;
        return api.ResumableUpload(caller.local, path, caller.item, id, &offset, &chunk, begin, caller.cancel, caller.progress);
    });
}

inline Operation Download(bool isDelta = false, const std::wstring& path = kPath)
{
    return [=](Api& api, Caller& caller) {
        return api.DownloadFile(path, caller.local, caller.item, caller.given, isDelta ? caller.signature : L"", caller.cancel,
                                caller.progress);
    };
}

inline Operation Range(std::uint64_t skip, std::int64_t count, const std::wstring& path = kPath)
{
    return [=](Api& api, Caller& caller) {
        return api.DownloadData(path, caller.local, caller.item, caller.given, &skip, &count, caller.cancel, caller.progress);
    };
}

inline Operation Metadata(const std::wstring& path = kPath, const Quendra::UploadId& id = kUpload)
{
    return [=](Api& api, Caller& caller) {
        std::uint32_t locked = 0;
        return api.GetResumableUploadMetadata(path, id, &caller.offset, &locked);
    };
}

/// Every kind of transfer that moves a file. The names of uploads end in "upload".
/// @param size  of the chunk and of the range.
inline std::map<std::string, Operation> FileTransfers(std::int64_t size = 9)
{
    return {{"upload", Upload(0)},    {"delta upload", Upload(1)}, {"chunk upload", Chunk(0, size)},
            {"download", Download()}, {"delta", Download(true)},   {"range", Range(1, size)}};
}

/// The same and the other operations of chunked uploads.
inline std::map<std::string, Operation> AllTransfers(std::int64_t size = 9)
{
    std::map<std::string, Operation> all = FileTransfers(size);
    all.insert({{"complete", Call(&Api::CompleteUpload, kPath, L"/d/b c.txt", kUpload)},
                {"cancel", Call(&Api::CancelUpload, kPath, kUpload)},
                {"metadata", Metadata()}});
    return all;
}

inline bool IsUpload(const std::string& name)
{
    return name.ends_with("upload");
}

inline bool IsDownload(const std::string& name)
{
    return name == "download" || name == "delta" || name == "range";
}
