#pragma once

/// @file
/// The class that implements the client, for modules that are built with the library. Callers of the library use `IQuendraHttpAPI`.

#include "QuendraHttp/QuendraHttp.h"

#include <cstdint>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#if defined(_WIN32)
// A macro of <windows.h>, where that is included as a whole.
#pragma push_macro("SetPort")
#undef SetPort
#endif

class Exchange;
class FunctionTraceScope;
class IWinHttpRequest;
class IWinHttpSession;

/// A version of the server's API.
struct ApiVersion
{
    std::uint32_t major = 0;
    std::uint32_t minor = 0;

    auto operator<=>(const ApiVersion&) const = default;
};

/// What the client knows about its server. Each operation works on a copy, so that a change by another thread cannot make its state
/// inconsistent.
struct ServerState
{
    std::wstring serverName;
    std::int32_t port = 0;
    bool secure = false;
    std::wstring endpointPath; ///< prefix of the synchronisation API.
    ApiVersion apiVersion;     ///< 0.0 before the handshake.
    std::wstring loggingEndpointPath;
    std::wstring deviceName;
    std::uint32_t serverMode = 0; ///< one of `kMode...`.
    std::uint32_t handshakeValue = 0;

    /// The path prefix of API requests: the endpoint path, or for API 1.0, which carries the session in the path, "/api/" and
    /// the session token.
    [[nodiscard]] std::wstring ApiBasePath(const std::wstring& sessionToken) const;
};

/// API versions that need special handling.
inline constexpr ApiVersion kApiVersion10{1, 0};
inline constexpr ApiVersion kApiVersion12{1, 2};
inline constexpr ApiVersion kApiVersion13{1, 3};

/// How the server authenticates; set by the handshake.
inline constexpr std::uint32_t kModeUnknown = 0;
inline constexpr std::uint32_t kModeLegacy = 1;
inline constexpr std::uint32_t kModeDeviceToken = 2;

/// The implementation of `IQuendraHttpAPI`. The interface documents the operations.
class CNativeHttp final : public IQuendraHttpAPI
{
public:
    using RequestHandleMap = std::map<std::wstring, std::shared_ptr<IWinHttpRequest>>;

    /// Registers a request so that `CloseRequestHandle` can find it while it runs.
    ///
    /// A newer request with the same key replaces the older one. The destructor removes only the tracker's own request.
    class RequestHandleTracker
    {
    public:
        /// @param requests      the map, guarded by `lock`; both outlive the tracker.
        /// @param request       shared while the tracker lives.
        /// @param key           what the caller passes to `CloseRequestHandle`.
        /// @param sessionToken  the token that the operation started with, kept for it.
        RequestHandleTracker(RequestHandleMap& requests, std::mutex& lock, std::shared_ptr<IWinHttpRequest> request, std::wstring key,
                             std::wstring sessionToken);
        ~RequestHandleTracker();

        RequestHandleTracker(const RequestHandleTracker&) = delete;
        RequestHandleTracker& operator=(const RequestHandleTracker&) = delete;

        [[nodiscard]] const std::wstring& SessionToken() const noexcept { return m_sessionToken; }

    private:
        RequestHandleMap& m_requests;
        std::mutex& m_lock;
        std::shared_ptr<IWinHttpRequest> m_request;
        std::wstring m_key;
        std::wstring m_sessionToken;
    };

    /// @param factory  makes the session, connections and requests.
    /// @throws std::bad_alloc
    CNativeHttp(std::shared_ptr<IWinHttpFactory> factory, const std::wstring& deviceName);
    ~CNativeHttp() override;

    CNativeHttp(const CNativeHttp&) = delete;
    CNativeHttp& operator=(const CNativeHttp&) = delete;

    ResultCode Init(std::uint32_t& serverMode, std::uint32_t& handshakeValue) override;
    ResultCode Version(std::wstring& buildNumber) override;
    bool IsApiVersionAtLeast13() override;
    ResultCode SetServer(const char* server) override;
    ResultCode SetPort(int port) override;
    ResultCode SetClientTag(const char* text) override;
    ResultCode SetDeviceName(const wchar_t* name) override;
    ResultCode Login(const std::wstring& userId, const std::wstring& password, const std::wstring& deviceToken,
                     const std::wstring& deviceId, std::wstring& policy, std::uint32_t& handshakeValue, const VersionNumber& clientVersion,
                     const VersionNumber& clientPlatformVersion) override;
    ResultCode Register(const std::wstring& userId, const std::wstring& deviceId) override;
    ResultCode ReservedNoOp() override;
    ResultCode GetSessionToken(std::wstring& token) override;
    ResultCode SetSessionToken(const std::wstring& token) override;
    ResultCode GetChanges(std::list<CNotificationAction*>& actions) override;
    ResultCode GetRemoteFolderMap(std::vector<CMapping*>& mappings) override;
    ResultCode GetPathAttributes(const std::wstring& path, std::shared_ptr<IServerAttributes>& attributes) override;
    ResultCode SetPathAttributes(const std::wstring& path, const std::shared_ptr<IServerAttributes>& attributes,
                                 std::shared_ptr<IServerAttributes>& newAttributes) override;
    std::uint32_t GetMappingsFromResponse(const ResponseBuffer& response, std::vector<CMapping*>& mappings) override;
    ResultCode GetPathListing(const std::wstring& path, ServerItemList& children, std::shared_ptr<IServerAttributes>& folder,
                              const CancelEvent* cancelEvent) override;
    ResultCode DeletePath(const std::wstring& path, const std::shared_ptr<IServerAttributes>& attributes) override;
    ResultCode RenamePath(const std::wstring& source, const std::wstring& target, std::uint32_t overwrite,
                          std::shared_ptr<IServerAttributes>& newAttributes) override;
    ResultCode AcknowledgeRemoteWipe(const std::wstring& userName, const std::wstring& deviceId) override;
    ResultCode CloseRequestHandle(const std::wstring& path) override;
    ResultCode CreateFolder(const std::wstring& path, std::shared_ptr<IServerAttributes>& attributes) override;
    ResultCode UploadFile(const std::wstring& localPath, const std::wstring& serverPath, std::shared_ptr<IServerAttributes>& attributes,
                          const std::uint32_t* deltaFlag, const CancelEvent& cancelEvent,
                          const std::shared_ptr<IProgressCallback>& progress) override;
    ResultCode ResumableUpload(const std::wstring& localPath, const std::wstring& serverPath,
                               std::shared_ptr<IServerAttributes>& attributes, const Quendra::UploadId& uploadId,
                               const std::int64_t* offset, std::int64_t* length, std::int32_t beginFlag, const CancelEvent& cancelEvent,
                               const std::shared_ptr<IProgressCallback>& progress) override;
    ResultCode CancelUpload(const std::wstring& serverPath, const Quendra::UploadId& uploadId) override;
    ResultCode CompleteUpload(const std::wstring& serverPath, const std::wstring& newServerPath, const Quendra::UploadId& uploadId,
                              std::shared_ptr<IServerAttributes>& attributes) override;
    ResultCode GetResumableUploadMetadata(const std::wstring& serverPath, const Quendra::UploadId& uploadId, std::int64_t* offset,
                                          std::uint32_t* locked) override;
    ResultCode DownloadFile(const std::wstring& serverPath, const std::wstring& localPath,
                            const std::shared_ptr<IServerAttributes>& attributes, std::shared_ptr<IServerAttributes>& outAttributes,
                            const std::wstring& signaturePath, const CancelEvent& cancelEvent,
                            const std::shared_ptr<IProgressCallback>& progress) override;
    ResultCode DownloadData(const std::wstring& serverPath, const std::wstring& localPath,
                            const std::shared_ptr<IServerAttributes>& attributes, std::shared_ptr<IServerAttributes>& outAttributes,
                            const std::uint64_t* skip, const std::int64_t* count, const CancelEvent& cancelEvent,
                            const std::shared_ptr<IProgressCallback>& progress) override;
    ResultCode PublishSyncStats(const std::string& data) override;
    ResultCode GenerateLink(std::shared_ptr<ShareRequest> request) override;
    void Release() override;

    /// The text set by `SetClientTag`.
    [[nodiscard]] std::string GetClientTag();

    /// The path prefix of API requests: the endpoint path, or for API 1.0, which carries the session in the path, "/api/" and
    /// the session token.
    [[nodiscard]] std::wstring GetApiBasePath();

    /// Resets the session's timeouts to their defaults; a failure is only traced.
    void ResetTimeouts();

    /// `Result::Retry` for a status of 401 if the session token differs from the start token, else `code`.
    [[nodiscard]] ResultCode CheckForChangedSessionToken(std::uint32_t status, const std::wstring& startToken, ResultCode code);

private:
    friend class Exchange;

    void Create(const std::wstring& deviceName);
    // The steps of the handshake. They may throw; the calling operation catches. They store their results in `server`.
    ResultCode ShakeHands(std::uint32_t& serverMode, std::uint32_t& handshakeValue);
    ResultCode SetHandshakeTimeouts(const FunctionTraceScope& trace);
    ResultCode ChooseVersion(const FunctionTraceScope& trace, ServerState& server);
    ResultCode AskServerMode(const FunctionTraceScope& trace, const ServerState& server, std::uint32_t& serverMode);

    // The prefix marks the steps that implement an operation; these names appear in traces.
    // NOLINTBEGIN(bugprone-reserved-identifier)
    ResultCode _Internal_UploadFile(const std::wstring& localPath, const std::wstring& serverPath,
                                    std::shared_ptr<IServerAttributes>& attributes, const CancelEvent& cancelEvent,
                                    const std::shared_ptr<IProgressCallback>& progress);
    ResultCode _Internal_UploadDelta(const std::wstring& localPath, const std::wstring& serverPath,
                                     std::shared_ptr<IServerAttributes>& attributes, const CancelEvent& cancelEvent,
                                     const std::shared_ptr<IProgressCallback>& progress);
    ResultCode _Internal_DownloadFile(const std::wstring& serverPath, const std::wstring& localPath,
                                      const std::shared_ptr<IServerAttributes>& attributes,
                                      std::shared_ptr<IServerAttributes>& outAttributes, const CancelEvent& cancelEvent,
                                      const std::shared_ptr<IProgressCallback>& progress);
    ResultCode _Internal_DownloadDelta(const std::wstring& serverPath, const std::wstring& localPath, const std::wstring& signaturePath,
                                       const std::shared_ptr<IServerAttributes>& attributes,
                                       std::shared_ptr<IServerAttributes>& outAttributes, const CancelEvent& cancelEvent,
                                       const std::shared_ptr<IProgressCallback>& progress);
    // NOLINTEND(bugprone-reserved-identifier)
    ResultCode RefreshAttributes(const std::wstring& serverPath, const std::shared_ptr<IServerAttributes>& attributes,
                                 std::shared_ptr<IServerAttributes>& outAttributes);

    [[nodiscard]] ServerState Server();
    template <typename Change> void ChangeServer(const Change& change)
    {
        const std::lock_guard guard(m_serverLock);
        change(m_server);
    }
    [[nodiscard]] std::wstring SessionToken();

    std::shared_ptr<IWinHttpFactory> m_factory;
    std::shared_ptr<IWinHttpSession> m_session;
    std::mutex m_serverLock;
    ServerState m_server;
    std::string m_clientTag;
    RequestHandleMap m_requests;
    std::mutex m_requestsLock;
};

#if defined(_WIN32)
#pragma pop_macro("SetPort")
#endif
