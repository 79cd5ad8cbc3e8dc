#include "FakeApi.h"

#include "Client/Program.h"
#include "TextConversion.h"

#include "Platform/Platform.h"

#include <atomic>
#include <chrono>
#include <fstream>
#include <sstream>
#include <thread>

namespace
{

template <typename... Parts> std::string Call(const std::string& operation, const Parts&... parts)
{
    std::ostringstream text;
    text << operation;
    [[maybe_unused]] const auto add = [&text](const auto& part) {
        if constexpr (std::is_convertible_v<decltype(part), std::wstring>)
            text << ' ' << ToNarrow(part);
        else
            text << ' ' << part;
    };
    (add(parts), ...);
    return text.str();
}

std::string Named(const IServerAttributes& item)
{
    return "size=" + (item.HasSize() ? item.GetSizeStringA() : "-") + " revision=" + item.GetRevision();
}

class FakeApi final : public IQuendraHttpAPI
{
public:
    explicit FakeApi(Script& script) : m_script(script) {}

    ResultCode Init(std::uint32_t& serverMode, std::uint32_t& handshakeValue) override
    {
        serverMode = 2;
        handshakeValue = 7;
        return Asked("Init");
    }
    ResultCode Version(std::wstring& buildNumber) override
    {
        buildNumber = L"9.1";
        return Asked("Version");
    }
    bool IsApiVersionAtLeast13() override { return true; }
    ResultCode SetServer(const char* server) override { return Asked("SetServer", server); }
    ResultCode SetPort(int port) override { return Asked("SetPort", port); }
    ResultCode SetClientTag(const char* text) override { return Asked("SetClientTag", text); }
    ResultCode SetDeviceName(const wchar_t* name) override { return Asked("SetDeviceName", name); }
    ResultCode Login(const std::wstring& userId, const std::wstring& password, const std::wstring& deviceToken,
                     const std::wstring& deviceId, std::wstring& policy, std::uint32_t& handshakeValue, const VersionNumber& version,
                     const VersionNumber& systemVersion) override
    {
        policy = m_script.policy;
        handshakeValue = 7;
        return Asked("Login", userId, password, deviceToken, deviceId, version.components[0], systemVersion.components[0]);
    }
    ResultCode Register(const std::wstring& userId, const std::wstring& deviceId) override { return Asked("Register", userId, deviceId); }
    ResultCode ReservedNoOp() override { return Asked("ReservedNoOp"); }
    ResultCode GetSessionToken(std::wstring& token) override
    {
        token = L"fresh-token";
        return Result::Success;
    }
    ResultCode SetSessionToken(const std::wstring& token) override { return Asked("SetSessionToken", token); }
    ResultCode GetChanges(std::list<CNotificationAction*>& actions) override
    {
        const ResultCode result = Asked("GetChanges");
        if (IsInterrupted("GetChanges"))
        {
            // The feed is silent until its request is closed.
            std::unique_lock guard(m_script.lock);
            return m_script.closed.wait_for(guard, std::chrono::seconds(10), [this] { return m_script.isClosed; }) ? 12017U : 31U;
        }
        if (result == Result::Success)
        {
            auto action = std::make_unique<CNotificationAction>();
            action->Type = NotificationType::Move;
            action->Value = L"/a\x1B";
            action->Value2 = L"/b";
            actions.push_back(action.release());
        }
        return result;
    }
    ResultCode GetRemoteFolderMap(std::vector<CMapping*>& mappings) override
    {
        mappings.push_back(std::make_unique<CMapping>(L"/Docs", L"Papers", L"", MappingMode::Offline, L"WRITE", MappingStatus::Reachable,
                                                      MappingType::WebDav, 1U)
                               .release());
        return Asked("GetRemoteFolderMap");
    }
    ResultCode GetPathAttributes(const std::wstring& path, std::shared_ptr<IServerAttributes>& attributes) override
    {
        return Deliver(attributes, Asked("GetPathAttributes", path));
    }
    ResultCode SetPathAttributes(const std::wstring& path, const std::shared_ptr<IServerAttributes>& attributes,
                                 std::shared_ptr<IServerAttributes>& newAttributes) override
    {
        newAttributes = attributes;
        return Asked("SetPathAttributes", path, attributes->GetCreationTime().ToString(), attributes->GetLastWriteTime().ToString(),
                     attributes->GetAttributes());
    }
    std::uint32_t GetMappingsFromResponse(const ResponseBuffer&, std::vector<CMapping*>&) override { return 0; }
    ResultCode GetPathListing(const std::wstring& path, ServerItemList& children, std::shared_ptr<IServerAttributes>& folder,
                              const CancelEvent*) override
    {
        for (const auto& name : m_script.children)
        {
            auto child = std::make_shared<CServerAttributes>();
            child->SetName(name);
            children.push_back(std::move(child));
        }
        return Deliver(folder, Asked("GetPathListing", path));
    }
    ResultCode DeletePath(const std::wstring& path, const std::shared_ptr<IServerAttributes>& attributes) override
    {
        return Asked("DeletePath", path, Named(*attributes));
    }
    ResultCode RenamePath(const std::wstring& source, const std::wstring& target, std::uint32_t overwrite,
                          std::shared_ptr<IServerAttributes>& newAttributes) override
    {
        return Deliver(newAttributes, Asked("RenamePath", source, target, overwrite));
    }
    ResultCode AcknowledgeRemoteWipe(const std::wstring& userName, const std::wstring& deviceId) override
    {
        return Asked("AcknowledgeRemoteWipe", userName, deviceId);
    }
    ResultCode CloseRequestHandle(const std::wstring& path) override
    {
        const std::lock_guard guard(m_script.lock);
        m_script.isClosed = path == L"/notifs";
        m_script.closed.notify_all();
        return Result::Success;
    }
    ResultCode CreateFolder(const std::wstring& path, std::shared_ptr<IServerAttributes>& attributes) override
    {
        return Deliver(attributes, Asked("CreateFolder", path));
    }
    ResultCode UploadFile(const std::wstring& localPath, const std::wstring& serverPath, std::shared_ptr<IServerAttributes>& attributes,
                          const std::uint32_t* deltaFlag, const CancelEvent& cancelEvent,
                          const std::shared_ptr<IProgressCallback>& progress) override
    {
        const ResultCode result = Asked("UploadFile", Leaf(localPath), serverPath, Named(*attributes), "delta", *deltaFlag);
        return Deliver(attributes, Transfer("UploadFile", result, cancelEvent, *progress));
    }
    ResultCode ResumableUpload(const std::wstring& localPath, const std::wstring& serverPath,
                               std::shared_ptr<IServerAttributes>& attributes, const GUID&, const std::int64_t* offset,
                               std::int64_t* length, std::int32_t beginFlag, const CancelEvent& cancelEvent,
                               const std::shared_ptr<IProgressCallback>& progress) override
    {
        const ResultCode result =
            Asked("ResumableUpload", Leaf(localPath), serverPath, Named(*attributes), *offset, *length, "begin", beginFlag);
        return Deliver(attributes, Transfer("ResumableUpload", result, cancelEvent, *progress));
    }
    ResultCode CancelUpload(const std::wstring& serverPath, const GUID&) override { return Asked("CancelUpload", serverPath); }
    ResultCode CompleteUpload(const std::wstring& serverPath, const std::wstring& newServerPath, const GUID&,
                              std::shared_ptr<IServerAttributes>& attributes) override
    {
        return Deliver(attributes, Asked("CompleteUpload", serverPath, newServerPath));
    }
    ResultCode GetResumableUploadMetadata(const std::wstring& serverPath, const GUID& uploadId, std::int64_t* offset,
                                          std::uint32_t*) override
    {
        *offset = m_script.receivedBytes;
        return Asked("GetResumableUploadMetadata", serverPath, uploadId.Data1);
    }
    ResultCode DownloadFile(const std::wstring& serverPath, const std::wstring& localPath,
                            const std::shared_ptr<IServerAttributes>& attributes, std::shared_ptr<IServerAttributes>& outAttributes,
                            const std::wstring& signaturePath, const CancelEvent& cancelEvent,
                            const std::shared_ptr<IProgressCallback>& progress) override
    {
        const ResultCode result = Asked("DownloadFile", serverPath, Leaf(localPath), Named(*attributes), "signature", Leaf(signaturePath));
        outAttributes = attributes;
        return Transfer("DownloadFile", result, cancelEvent, *progress);
    }
    ResultCode DownloadData(const std::wstring& serverPath, const std::wstring& localPath,
                            const std::shared_ptr<IServerAttributes>& attributes, std::shared_ptr<IServerAttributes>& outAttributes,
                            const std::uint64_t* skip, const std::int64_t* count, const CancelEvent& cancelEvent,
                            const std::shared_ptr<IProgressCallback>& progress) override
    {
        const ResultCode result = Asked("DownloadData", serverPath, Leaf(localPath), Named(*attributes), *skip, *count);
        return Deliver(outAttributes, Transfer("DownloadData", result, cancelEvent, *progress));
    }
    ResultCode PublishSyncStats(const std::string& data) override { return Asked("PublishSyncStats", data); }
    ResultCode GenerateLink(std::shared_ptr<ShareRequest> request) override
    {
        std::wstring lists;
        for (const auto& path : request->paths)
            lists += path + L" ";
        lists += L"to";
        for (const auto& target : request->targets)
            lists += L" " + target;
        return Asked("GenerateLink", request->name, request->message, lists);
    }
    void Release() override { delete this; }

private:
    static std::wstring Leaf(const std::wstring& path) { return std::filesystem::path(path).filename().wstring(); }

    template <typename... Parts> ResultCode Asked(const std::string& operation, const Parts&... parts)
    {
        m_script.calls.push_back(Call(operation, parts...));
        const std::size_t index = m_script.counts[operation]++;
        const auto found = m_script.results.find(operation);
        return found != m_script.results.end() && index < found->second.size() ? found->second[index] : Result::Success;
    }

    ResultCode Deliver(std::shared_ptr<IServerAttributes>& target, ResultCode result) const
    {
        if (result == Result::Success || result == Result::Conflict)
            target = m_script.item;
        return result;
    }

    bool IsInterrupted(const std::string& operation)
    {
        if (operation != m_script.interruptedIn || m_script.counts[operation] != m_script.interruptedAt)
            return false;
        m_script.interrupt();
        return true;
    }

    ResultCode Transfer(const std::string& operation, ResultCode result, const CancelEvent& cancelEvent, IProgressCallback& progress)
    {
        progress.OnBlock(4, 4);
        if (!IsInterrupted(operation))
            return result;
        return WaitForSingleObject(cancelEvent.event, 10'000) == WAIT_OBJECT_0 ? Result::Cancelled : 31U;
    }

    Script& m_script;
};

// Presses Ctrl-C as the system does: on a thread of its own, for which its end waits.
class FakeWatch final : public System::InterruptWatch
{
public:
    FakeWatch(Script& script, std::function<void()> interrupted) : m_script(script)
    {
        m_script.interrupt = [this, interrupted] { m_thread = std::thread(interrupted); };
    }
    ~FakeWatch() override
    {
        m_script.interrupt = nullptr;
        if (m_thread.joinable())
            m_thread.join();
    }

    FakeWatch(const FakeWatch&) = delete;
    FakeWatch& operator=(const FakeWatch&) = delete;

private:
    Script& m_script;
    std::thread m_thread;
};

} // namespace

IQuendraHttpAPI* MakeFakeApi(Script& script, const std::wstring& deviceName)
{
    script.calls.push_back("CreateInstance " + ToNarrow(deviceName));
    return std::make_unique<FakeApi>(script).release();
}

ScratchFolder::ScratchFolder()
{
    GUID id{};
    static_cast<void>(CoCreateGuid(&id));
    wchar_t text[39] = {};
    StringFromGUID2(id, text, 39);
    m_path = std::filesystem::temp_directory_path() / (L"quendra-client" + std::wstring(text));
    std::filesystem::create_directory(m_path);
}

ScratchFolder::~ScratchFolder()
{
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

std::string ScratchFolder::Make(const std::string& name, const std::string& content) const
{
    std::ofstream(m_path / name, std::ios::binary) << content;
    return File(name);
}

Ran ProgramRunner::operator()(const std::vector<std::string>& arguments)
{
    std::istringstream in(input);
    std::ostringstream out;
    std::ostringstream err;
    const Surroundings surroundings{
        .input = in,
        .output = out,
        .errors = err,
        .inputIsTerminal = isTerminal,
        .errorsAreTerminal = isTerminal,
        .machineName = L"machine",
        .configurationFolder = folder.Path(),
        .environment = [this](const std::string& name) -> std::optional<std::string> {
            const auto found = environment.find(name);
            return found != environment.end() ? std::optional(found->second) : std::nullopt;
        },
        .askSecretly = [](const std::string&) { return std::optional<std::string>("from-prompt"); },
        .terminalColumns = [] { return 80U; },
        .watchInterrupts = [this](std::function<void()> interrupted) -> std::unique_ptr<System::InterruptWatch> {
            return std::make_unique<FakeWatch>(script, std::move(interrupted));
        },
        .programVersion =
            [] {
        return VersionNumber{3, 1};
        },
        .systemVersion = [] { return VersionNumber{}; },
        .initialiseLibrary = [](std::uint64_t) { return 0; },
        .exitLibrary = [] {},
        .createInstance = [this](const std::wstring& name) { return MakeFakeApi(script, name); },
        };
    script.calls.clear();
    Ran ran;
    ran.status = RunProgram(arguments, surroundings);
    ran.output = out.str();
    ran.errors = err.str();
    ran.calls = script.calls;
    return ran;
}
