#pragma once

/// @file
/// What the tests of transfers share: a folder of their own, a cancel event, a progress sink that remembers, an item.

#include "Attributes.h"
#include "Instance.h"
#include "RawServer.h"

#include "Platform/Platform.h"
#include "QuendraHttp/QuendraHttp.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>

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

/// A folder that is gone with the test; a file in it that somebody still holds open is a failure where the platform tells.
class TemporaryFolder
{
public:
    TemporaryFolder() : m_path(std::filesystem::temp_directory_path() / ("quendra-test-" + std::to_string(std::random_device()())))
    {
        std::filesystem::create_directory(m_path);
    }
    ~TemporaryFolder()
    {
        std::error_code failure;
        std::filesystem::remove_all(m_path, failure);
        EXPECT_FALSE(failure) << failure.message();
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

    [[nodiscard]] std::wstring Write(const std::string& name, const std::string& content) const
    {
        std::ofstream(m_path / name, std::ios::binary) << content;
        return (m_path / name).wstring();
    }

    [[nodiscard]] std::string Read(const std::string& name) const
    {
        std::ifstream file(m_path / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    const std::filesystem::path m_path;
};

/// A cancel event.
struct Event : CancelEvent
{
    explicit Event(bool resetsItself = false) : CancelEvent{CreateEventW(nullptr, resetsItself ? FALSE : TRUE, FALSE, nullptr)} {}
    ~Event() { CloseHandle(event); }

    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    void Signal() const { SetEvent(event); }
};

/// Remembers every call as text, "status:4 3@3 2@5 " (sizes of status texts in characters), and where it has come to.
struct ProgressRecord final : IProgressCallback
{
    explicit ProgressRecord(std::function<void()> atBlock = {}) : onBlock(std::move(atBlock)) {}

    void OnBlock(std::uint64_t blockSize, std::uint64_t position) override
    {
        calls += std::to_string(blockSize) + "@" + std::to_string(position) + " ";
        inOrder = inOrder && position == last + blockSize;
        last = position;
        if (onBlock)
            onBlock();
    }
    void OnStatusSize(std::uint32_t size) override
    {
        calls += "status:" + std::to_string(size / sizeof(wchar_t)) + " ";
        last = 0;
    }

    std::function<void()> onBlock;
    std::string calls;
    bool inOrder = true;    ///< each block began where the one before it had ended.
    std::uint64_t last = 0; ///< where the first begins, and the last has ended: of what is sent, after a status of what is received.
};

/// The server's answer to an upload.
inline const std::string kReply = R"({"name":"new.txt","revision":"8","creation_time":"2020-01-02T03:04:05.6Z",)"
                                  R"("modification_time":"2020-01-02T03:04:05.6Z","size":1,"attributes":32})";

/// A refusal that brings the item's current state.
inline const std::string kConflict = R"({"errorId":"1077",)" + kReply.substr(1);

/// What a caller has at hand, and where an operation leaves what it gives.
struct Caller
{
    Item item = MakeItem();
    CancelEvent cancel;
    std::shared_ptr<IProgressCallback> progress;
    std::wstring local = L"local";
    std::wstring signature = L"sig";
    Item given; ///< null: the caller's variable is as it was.
};

/// An operation on "/d/a.txt".
using Transfer = std::function<ResultCode(Api&, Caller&)>;

inline constexpr GUID kUpload{0x0F8FAD5B, 0xD9CB, 0x469F, {0xA1, 0x65, 0x70, 0x86, 0x77, 0x28, 0x95, 0x0E}};

/// One that puts the item of the server's answer in the place of the caller's.
inline Transfer ReplacingItem(Transfer send)
{
    return [send = std::move(send)](Api& api, Caller& caller) {
        const auto* const before = caller.item.get();
        const ResultCode result = send(api, caller);
        caller.given = caller.item.get() == before ? nullptr : caller.item;
        return result;
    };
}

inline Transfer Upload(std::uint32_t delta)
{
    return ReplacingItem([delta](Api& api, Caller& caller) {
        return api.UploadFile(caller.local, L"/d/a.txt", caller.item, &delta, caller.cancel, caller.progress);
    });
}

inline Transfer Chunk(std::int64_t offset, std::int64_t length, std::int32_t begin = 0)
{
    return ReplacingItem([=](Api& api, Caller& caller) {
        std::int64_t chunk = length;
        return api.ResumableUpload(caller.local, L"/d/a.txt", caller.item, kUpload, &offset, &chunk, begin, caller.cancel, caller.progress);
    });
}

inline Transfer Download(bool isDelta = false)
{
    return [isDelta](Api& api, Caller& caller) {
        return api.DownloadFile(L"/d/a.txt", caller.local, caller.item, caller.given, isDelta ? caller.signature : L"", caller.cancel,
                                caller.progress);
    };
}

inline Transfer DeltaDownload()
{
    return Download(true);
}

inline Transfer Range(std::uint64_t skip, std::int64_t count)
{
    return [=](Api& api, Caller& caller) {
        return api.DownloadData(L"/d/a.txt", caller.local, caller.item, caller.given, &skip, &count, caller.cancel, caller.progress);
    };
}

inline const Transfer kComplete = [](Api& api, Caller& caller) {
    return api.CompleteUpload(L"/d/a.txt", L"/d/b c.txt", kUpload, caller.given);
};

inline const Transfer kCancel = [](Api& api, Caller&) { return api.CancelUpload(L"/d/a.txt", kUpload); };

inline const Transfer kMetadata = [](Api& api, Caller&) {
    std::int64_t offset = 0;
    std::uint32_t locked = 0;
    return api.GetResumableUploadMetadata(L"/d/a.txt", kUpload, &offset, &locked);
};

/// Every kind of transfer that moves a file; names of those that give the server's item end in "upload".
/// @param size  of the chunk and of the range.
inline std::map<std::string, Transfer> FileTransfers(std::int64_t size = 9)
{
    return {{"upload", Upload(0)},    {"delta upload", Upload(1)}, {"chunk upload", Chunk(0, size)},
            {"download", Download()}, {"delta", DeltaDownload()},  {"range", Range(1, size)}};
}

/// The same and the rest of the chunked upload's protocol.
inline std::map<std::string, Transfer> AllTransfers(std::int64_t size = 9)
{
    std::map<std::string, Transfer> all = FileTransfers(size);
    all.insert({{"complete", kComplete}, {"cancel", kCancel}, {"metadata", kMetadata}});
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
