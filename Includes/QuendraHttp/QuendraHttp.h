#pragma once

/// @file
/// The library's interface: create an instance, drive it, release it.
///
///     IQuendraHttpAPI* api = CreateInstance(L"my-laptop");
///     api->SetServer("https://files.example.com");
///     api->SetPort(443);
///     std::wstring policy;
///     std::uint32_t handshakeValue = 0;
///     ResultCode result = api->Login(L"ann", L"secret", L"", L"my-laptop", policy, handshakeValue, {}, {});
///     api->Release();

#include "QuendraHttp/ResultCodes.h"
#include "QuendraHttp/Types.h"

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

class CMapping;
class CNotificationAction;
class IServerAttributes;
class IWinHttpFactory;

#if defined(_WIN32) && defined(QUENDRA_HTTP_BUILD)
#define QUENDRA_HTTP_API extern "C"
#elif defined(_WIN32)
#define QUENDRA_HTTP_API extern "C" __declspec(dllimport)
#else
#define QUENDRA_HTTP_API extern "C" __attribute__((visibility("default")))
#endif

/// Items in the order in which the server reports them.
using ServerItemList = std::list<std::shared_ptr<IServerAttributes>>;

/// The conversation with one server. Every operation blocks until its exchange ends and may be called from any thread.
///
/// An operation returns 0 on success, else a code of `Result` or of the platform; nothing is thrown. Where memory runs out it
/// is `Result::Failed`. Outputs are set on success only, unless stated otherwise. The order of the operations is part of
/// the contract with callers built by other compilers.
class IQuendraHttpAPI
{
public:
    /// Slot 0. Ends the instance; nothing is sent to the server. No operation may be running.
    virtual ~IQuendraHttpAPI() = default;

    /// Slot 1. Shakes hands with the server: chooses the newest API version that both speak, learns the endpoint paths and the
    /// server mode. Once it succeeded, later calls return the same values without asking the server.
    /// @param[out] serverMode      1 legacy, 2 device-token authentication.
    /// @param[out] handshakeValue  the server's "tos" value divided by 4, rounded down; set as soon as a version is chosen, also
    ///                             where the mode is not learnt then.
    /// @return 19006 for a server without a compatible API version, 12004 for a reply without a readable mode, 8 for none;
    ///         a refusal (20000 + n); a platform error, as an HRESULT where the timeouts cannot be set.
    virtual ResultCode Init(std::uint32_t& serverMode, std::uint32_t& handshakeValue) = 0;

    /// Slot 2. Asks the server for its version.
    /// @param[out] buildNumber  the server's text.
    /// @return 12004 for a reply without a build number, 8 for none; a refusal; a platform error.
    virtual ResultCode Version(std::wstring& buildNumber) = 0;

    /// Slot 3. Whether the negotiated API version is 1.3 or later; false before the handshake.
    virtual bool IsApiVersionAtLeast13() = 0;

    /// Slot 4. Names the server.
    /// @param server  in the thread's ANSI code page: a host, "http://host" or "https://host"; only "https://" (in any case)
    ///                makes requests secure. What follows the host stays part of the name.
    virtual ResultCode SetServer(const char* server) = 0;

    /// Slot 5. The server's TCP port; not checked.
    virtual ResultCode SetPort(int port) = 0;

    /// Slot 6. Keeps a text for the caller; the library does not use it.
    virtual ResultCode SetClientTag(const char* text) = 0;

    /// Slot 7. Replaces the device name that login and registration send.
    virtual ResultCode SetDeviceName(const wchar_t* name) = 0;

    /// Slot 8. Shakes hands (see `Init`), then opens a session for a user; later requests carry its token.
    /// @param deviceToken           sent unless the server is in legacy mode.
    /// @param deviceId              the machine's name.
    /// @param[out] policy           the whole reply, where it holds a policy block, also when the result is 5.
    /// @param[out] handshakeValue   as `Init` gives it.
    /// @param clientVersion, clientPlatformVersion  left out where the first component is 0.
    /// @return 5 for a reply without a token, 8 for none, 122 for a field that is too long (nothing is sent); a refusal;
    ///         a platform error.
    virtual ResultCode Login(const std::wstring& userId, const std::wstring& password, const std::wstring& deviceToken,
                             const std::wstring& deviceId, std::wstring& policy, std::uint32_t& handshakeValue,
                             const VersionNumber& clientVersion, const VersionNumber& clientPlatformVersion) = 0;

    /// Slot 9. Registers this device for a user; the server sends the user an e-mail, again where it knows the device.
    /// @return 122 for a field that is too long (nothing is sent); a refusal; a platform error.
    virtual ResultCode Register(const std::wstring& userId, const std::wstring& deviceId) = 0;

    /// Slot 10. Does nothing.
    virtual ResultCode ReservedNoOp() = 0;

    /// Slot 11.
    virtual ResultCode GetSessionToken(std::wstring& token) = 0;

    /// Slot 12. Replaces the session token; no request is made. Empty means none.
    virtual ResultCode SetSessionToken(const std::wstring& token) = 0;

    /// Slot 13. Waits for changes on the server. Another thread ends the wait with `CloseRequestHandle(L"/notifs")`.
    /// @param[in,out] actions  appended to; the caller deletes the records.
    virtual ResultCode GetChanges(std::list<CNotificationAction*>& actions) = 0;

    /// Slot 14. The server's folder mappings.
    /// @param[in,out] mappings  appended to; the caller deletes the records.
    /// @return 8 for a reply without a body, 13 for one without a mapping; a refusal; a platform error.
    virtual ResultCode GetRemoteFolderMap(std::vector<CMapping*>& mappings) = 0;

    /// Slot 15. One item's attributes.
    /// @param path  server path, "/"-separated, from the user's root.
    /// @return 13 for a reply that does not describe exactly one item, 8 for none; a refusal; a platform error.
    virtual ResultCode GetPathAttributes(const std::wstring& path, std::shared_ptr<IServerAttributes>& attributes) = 0;

    /// Slot 16. Writes an item's times and attribute bits.
    /// @param attributes          what to write.
    /// @param[out] newAttributes  the item afterwards.
    /// @return 5 for a reply that does not describe exactly one item, 8 for none; a refusal; a platform error.
    virtual ResultCode SetPathAttributes(const std::wstring& path, const std::shared_ptr<IServerAttributes>& attributes,
                                         std::shared_ptr<IServerAttributes>& newAttributes) = 0;

    /// Slot 17. Reads a mappings reply; no request is made.
    /// @param[in,out] mappings  appended to; the caller deletes the records.
    /// @return the number of records appended.
    virtual std::uint32_t GetMappingsFromResponse(const ResponseBuffer& response, std::vector<CMapping*>& mappings) = 0;

    /// Slot 18. A folder and what is in it.
    /// @param[in,out] children  appended to, also where the folder's own record cannot be read.
    /// @param[out] folder       the folder itself.
    /// @param cancelEvent       tested once before anything is sent; may be null.
    /// @return 87 for an empty path or before `SetServer`, 1223 when cancelled, 13 for a reply without the folder, 8 for none,
    ///         1237 (repeat); a refusal; a platform error.
    virtual ResultCode GetPathListing(const std::wstring& path, ServerItemList& children, std::shared_ptr<IServerAttributes>& folder,
                                      const CancelEvent* cancelEvent) = 0;

    /// Slot 19. Deletes an item.
    /// @param attributes  names the revision to delete; may be empty for any.
    /// @return a refusal, 20000 also for a transfer that failed; a platform error of the set-up.
    virtual ResultCode DeletePath(const std::wstring& path, const std::shared_ptr<IServerAttributes>& attributes) = 0;

    /// Slot 20. Renames an item in its folder (over whatever has the new name), or moves it to another.
    /// @param overwrite           1 lets a move replace its target.
    /// @param[out] newAttributes  the item afterwards.
    /// @return 13 for a reply that does not describe exactly one item, 8 for none; a refusal; a platform error.
    virtual ResultCode RenamePath(const std::wstring& source, const std::wstring& target, std::uint32_t overwrite,
                                  std::shared_ptr<IServerAttributes>& newAttributes) = 0;

    /// Slot 21. Tells the server that this device carried out a remote wipe.
    /// @return the bare HTTP status of a refusal; a platform error.
    virtual ResultCode AcknowledgeRemoteWipe(const std::wstring& userName, const std::wstring& deviceId) = 0;

    /// Slot 22. Ends the request that runs for a path on another thread; does nothing where there is none.
    /// @param path  the path that the operation was given; "/notifs" for `GetChanges`.
    virtual ResultCode CloseRequestHandle(const std::wstring& path) = 0;

    /// Slot 23. Creates a folder.
    /// @return 5 for a reply that does not describe exactly one item, 8 for none; a refusal; a platform error.
    virtual ResultCode CreateFolder(const std::wstring& path, std::shared_ptr<IServerAttributes>& attributes) = 0;

    /// Slot 24. Sends a whole local file, or a delta against what the server has.
    /// @param[in,out] attributes  times, attribute bits, size and revision to send; then what the server reports, also for 21077.
    /// @param deltaFlag           non-zero: `localPath` is a delta.
    /// @param progress            may be empty.
    /// @return 1223 when cancelled, 13 for a reply that cannot be read, 12152 for none, 1237 (repeat); a refusal; a platform
    ///         error.
    virtual ResultCode UploadFile(const std::wstring& localPath, const std::wstring& serverPath,
                                  std::shared_ptr<IServerAttributes>& attributes, const std::uint32_t* deltaFlag,
                                  const CancelEvent& cancelEvent, const std::shared_ptr<IProgressCallback>& progress) = 0;

    /// Slot 25. Sends one chunk of a local file.
    /// @param[in,out] attributes  the item's times, attribute bits, size and revision; then what the server reports.
    /// @param uploadId            the caller's identifier of the whole upload.
    /// @param offset              the chunk's first byte.
    /// @param[in,out] length      the chunk's bytes; cut at the size that the attributes tell, to 0 beyond it.
    /// @param beginFlag           non-zero for an upload's first chunk.
    /// @param progress            may be empty.
    /// @return like `UploadFile`, 12152 for a refusal without a body, 87 for a negative offset, length or size.
    virtual ResultCode ResumableUpload(const std::wstring& localPath, const std::wstring& serverPath,
                                       std::shared_ptr<IServerAttributes>& attributes, const GUID& uploadId, const std::int64_t* offset,
                                       std::int64_t* length, std::int32_t beginFlag, const CancelEvent& cancelEvent,
                                       const std::shared_ptr<IProgressCallback>& progress) = 0;

    /// Slot 26. Abandons a chunked upload.
    virtual ResultCode CancelUpload(const std::wstring& serverPath, const GUID& uploadId) = 0;

    /// Slot 27. Finishes a chunked upload, under another path.
    /// @param[out] attributes  the item.
    virtual ResultCode CompleteUpload(const std::wstring& serverPath, const std::wstring& newServerPath, const GUID& uploadId,
                                      std::shared_ptr<IServerAttributes>& attributes) = 0;

    /// Slot 28. What the server has of a chunked upload.
    /// @param[out] offset  bytes received.
    /// @param[out] locked  1 or 0; left alone where the server does not tell.
    /// @return 8 for a reply without a body, 13 for one that cannot be read; a refusal; a platform error.
    virtual ResultCode GetResumableUploadMetadata(const std::wstring& serverPath, const GUID& uploadId, std::int64_t* offset,
                                                  std::uint32_t* locked) = 0;

    /// Slot 29. Receives a whole file, or, with a signature of the local one, a delta against it.
    /// @param attributes          the item, for its revision.
    /// @param[out] outAttributes  the item after the transfer.
    /// @param signaturePath       local signature file; empty for a whole file.
    /// @param progress            may be empty.
    virtual ResultCode DownloadFile(const std::wstring& serverPath, const std::wstring& localPath,
                                    const std::shared_ptr<IServerAttributes>& attributes, std::shared_ptr<IServerAttributes>& outAttributes,
                                    const std::wstring& signaturePath, const CancelEvent& cancelEvent,
                                    const std::shared_ptr<IProgressCallback>& progress) = 0;

    /// Slot 30. Receives a range of a file and writes it at the same position of the local file.
    /// @param skip   first byte of the range.
    /// @param count  bytes of the range.
    virtual ResultCode DownloadData(const std::wstring& serverPath, const std::wstring& localPath,
                                    const std::shared_ptr<IServerAttributes>& attributes, std::shared_ptr<IServerAttributes>& outAttributes,
                                    const std::uint64_t* skip, const std::int64_t* count, const CancelEvent& cancelEvent,
                                    const std::shared_ptr<IProgressCallback>& progress) = 0;

    /// Slot 31. Publishes audit data.
    /// @param data  UTF-8.
    /// @return 1341 for a server without an audit endpoint, 122 for data that is too long (nothing is sent); a refusal; a
    ///         platform error.
    virtual ResultCode PublishSyncStats(const std::string& data) = 0;

    /// Slot 32. Asks the server to share items with recipients.
    /// @return 8 for a reply without a body, 122 for a field that is too long (nothing is sent); a refusal; a platform error.
    virtual ResultCode GenerateLink(std::shared_ptr<ShareRequest> request) = 0;

    /// Slot 33. Ends the instance like slot 0. C++ cannot call it through a null pointer: where the pointer may be null, call
    /// `ReleaseInstance`.
    virtual void Release() = 0;
};

/// Ends an instance; a null pointer does nothing. `Release` does the same for an instance that is there.
inline void ReleaseInstance(IQuendraHttpAPI* instance) noexcept
{
    delete instance;
}

/// Hands the library the host's tracing provider. Called once, before the first instance.
/// @param handle  as registered with the tracing library; the host owns it. 0 for none.
/// @return 0.
QUENDRA_HTTP_API std::int32_t Init(std::uint64_t handle);

/// Does nothing; the matching call to `Init`.
QUENDRA_HTTP_API void Exit();

/// Makes an instance over the library's own transport.
/// @return the instance, to be ended by slot 0, slot 33 or `ReleaseInstance`; null where memory runs out.
QUENDRA_HTTP_API IQuendraHttpAPI* CreateInstance(const std::wstring& deviceName);

/// Makes an instance over a caller's transport.
/// @param factory  shared by the instance for its life.
/// @return as `CreateInstance`.
QUENDRA_HTTP_API IQuendraHttpAPI* CreateInstanceWithFactory(const std::shared_ptr<IWinHttpFactory>& factory,
                                                            const std::wstring& deviceName);
