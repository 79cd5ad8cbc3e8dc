#pragma once

/// @file
/// The library's interface: create an instance, call its operations, release it.
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
#include "QuendraHttp/UploadId.h"

#include <cstdint>
#include <list>
#include <memory>
#include <string>
#include <vector>

class CMapping;
class CNotificationAction;
class IServerAttributes;
class IWinHttpFactory;

/// @cond
#if defined(_WIN32) && defined(QUENDRA_HTTP_BUILD)
#define QUENDRA_HTTP_API extern "C"
#elif defined(_WIN32)
#define QUENDRA_HTTP_API extern "C" __declspec(dllimport)
#else
#define QUENDRA_HTTP_API extern "C" __attribute__((visibility("default")))
#endif

#if defined(_WIN32)
// A macro of <windows.h>, where that is included as a whole.
#pragma push_macro("SetPort")
#undef SetPort
#endif
/// @endcond

/// Items in the order in which the server reports them.
using ServerItemList = std::list<std::shared_ptr<IServerAttributes>>;

/// A client of one server. Every operation blocks until it has finished and may be called from any thread.
///
/// An operation returns 0 on success, else a code of `Result` or of the platform; nothing is thrown. If memory runs out, it returns
/// `Result::Failed`. Outputs are set on success only, unless stated otherwise; what is passed by reference to be replaced may have changed.
/// The order of the operations is part of the contract with callers built by other compilers.
///
/// A server path begins at the user's root with "/" and is separated by "/"; it is not encoded. A local path is one of the platform's and
/// names a regular file: `Result::AccessDenied` for a folder, `Result::NotSupported` for a pipe, a socket or a device (but a device on
/// which a write cannot block is written to), `Result::InvalidName` for a path with a NUL. A file that is written to is opened without
/// sharing: `Result::SharingViolation` where it is open elsewhere, on Linux where another operation of this library has it open. No
/// operation waits for a file. A refusal is a code from `Result::RefusalBase` on: plus the reply's "errorId", or plus the HTTP status. A
/// platform error is the error of the step that failed: set-up, sending, receiving, reading or writing the local file.
///
/// Objects passed by shared pointer stay alive during the call: a callback may reset the caller's own pointers.
///
/// Replies other than file content are held in memory, whatever their size: only a single piece is limited, to 5 MiB; a larger one ends the
/// operation with `Result::InsufficientBuffer`. The contents of the records are not checked: a name may hold separators, be ".." or be
/// empty. Check it before you use it in a local path.
class IQuendraHttpAPI
{
public:
    /// Slot 0. Ends the instance; nothing is sent to the server. No operation may be running.
    virtual ~IQuendraHttpAPI() = default;

    /// Slot 1. Performs the handshake with the server: chooses the newest API version that both speak, learns the endpoint paths and the
    /// server mode. Once it succeeded, later calls return the same values without asking the server.
    /// @param[out] serverMode      1 legacy, 2 device-token authentication.
    /// @param[out] handshakeValue  the server's "tos" value divided by 4, rounded down; set as soon as a version is chosen, even if the
    ///                             mode is not found.
    /// @return `Result::IncompatibleServer` for a server without a compatible API version, or where it cannot be asked for its versions,
    ///         whatever the reason; `Result::BadReply` for a reply without a readable mode, `Result::NotEnoughMemory` for none; a refusal
    ///         to tell the mode; a platform error, as an HRESULT if the timeouts cannot be set.
    [[nodiscard]] virtual ResultCode Init(std::uint32_t& serverMode, std::uint32_t& handshakeValue) = 0;

    /// Slot 2. Asks the server for its version.
    /// @param[out] buildNumber  the server's text.
    /// @return `Result::BadReply` for a reply without a build number, `Result::NotEnoughMemory` for none; a refusal; a platform error.
    [[nodiscard]] virtual ResultCode Version(std::wstring& buildNumber) = 0;

    /// Slot 3. Which API version was negotiated.
    /// @return whether it is 1.3 or later; false before the handshake.
    virtual bool IsApiVersionAtLeast13() = 0;

    /// Slot 4. Names the server. To be called before the handshake.
    /// @param server  in the thread's ANSI code page: a host, "http://host" or "https://host"; only "https://" (in any case)
    ///                makes requests secure. What follows the host stays part of the name.
    /// @return 0; `Result::InvalidParameter` for a null pointer.
    virtual ResultCode SetServer(const char* server) = 0;

    /// Slot 5. Sets the server's TCP port.
    /// @param port  not checked; 0 until it is set.
    /// @return 0.
    virtual ResultCode SetPort(int port) = 0;

    /// Slot 6. Keeps a text for the caller; the library does not use it.
    /// @param text  copied.
    /// @return 0; `Result::InvalidParameter` for a null pointer.
    virtual ResultCode SetClientTag(const char* text) = 0;

    /// Slot 7. Replaces the device name that login and registration send.
    /// @param name  copied.
    /// @return 0; `Result::InvalidParameter` for a null pointer.
    virtual ResultCode SetDeviceName(const wchar_t* name) = 0;

    /// Slot 8. Performs the handshake (see `Init`), then opens a session for a user, also where the handshake failed; later requests carry
    /// its token. To send the password only to a server that completed the handshake, call `Init` first.
    /// @param userId                the user's name.
    /// @param password              never traced.
    /// @param deviceToken           sent unless the server is in legacy mode.
    /// @param deviceId              the machine's name.
    /// @param[out] policy           the whole reply if it holds a policy block, also when the result is `Result::AccessDenied`.
    /// @param[out] handshakeValue   as `Init` gives it.
    /// @param clientVersion         left out where the first component is 0.
    /// @param clientPlatformVersion left out where the first component is 0.
    /// @return `Result::AccessDenied` for a reply without a token, or with one that holds CR, LF or NUL, `Result::NotEnoughMemory` for
    ///         none, `Result::InsufficientBuffer` for a field that is too long (nothing is sent); a refusal; a platform error.
    [[nodiscard]] virtual ResultCode Login(const std::wstring& userId, const std::wstring& password, const std::wstring& deviceToken,
                                           const std::wstring& deviceId, std::wstring& policy, std::uint32_t& handshakeValue,
                                           const VersionNumber& clientVersion, const VersionNumber& clientPlatformVersion) = 0;

    /// Slot 9. Registers this device for a user; the server sends the user an e-mail, also for a known device.
    /// @param userId    the user's name.
    /// @param deviceId  the machine's name.
    /// @return `Result::InsufficientBuffer` for a field that is too long (nothing is sent); a refusal; a platform error.
    [[nodiscard]] virtual ResultCode Register(const std::wstring& userId, const std::wstring& deviceId) = 0;

    /// Slot 10. Does nothing.
    /// @return 0.
    virtual ResultCode ReservedNoOp() = 0;

    /// Slot 11. Returns the session token.
    /// @param[out] token  empty for none. Whoever has it acts as the user: treat it like a password.
    /// @return 0.
    virtual ResultCode GetSessionToken(std::wstring& token) = 0;

    /// Slot 12. Replaces the session token; no request is made.
    /// @param token  empty for none. If it holds CR, LF or NUL, every request fails with `Result::InvalidParameter`.
    /// @return 0; `Result::InvalidHandle` if the transport created no session.
    virtual ResultCode SetSessionToken(const std::wstring& token) = 0;

    /// Slot 13. Waits for changes on the server. Another thread ends the wait with `CloseRequestHandle(L"/notifs")`.
    /// @param[in,out] actions  appended to; the caller deletes the records.
    /// @return 0, also if nothing changed, and for any reply without a body: a refusal, or a reply that was cut off or closed after its
    ///         headers; `Result::Retry`; a refusal; a platform error.
    [[nodiscard]] virtual ResultCode GetChanges(std::list<CNotificationAction*>& actions) = 0;

    /// Slot 14. The server's folder mappings.
    /// @param[in,out] mappings  appended to; the caller deletes the records.
    /// @return `Result::NotEnoughMemory` for a reply without a body, `Result::InvalidData` for one without a mapping; a refusal; a platform
    ///         error.
    [[nodiscard]] virtual ResultCode GetRemoteFolderMap(std::vector<CMapping*>& mappings) = 0;

    /// Slot 15. One item's attributes.
    /// @param path             server path.
    /// @param[out] attributes  the item.
    /// @return `Result::InvalidData` for a reply that does not describe exactly one item, `Result::NotEnoughMemory` for none; a refusal; a
    ///         platform error.
    [[nodiscard]] virtual ResultCode GetPathAttributes(const std::wstring& path, std::shared_ptr<IServerAttributes>& attributes) = 0;

    /// Slot 16. Writes an item's times and attribute bits.
    /// @param path                server path.
    /// @param attributes          what to write.
    /// @param[out] newAttributes  the item afterwards.
    /// @return `Result::AccessDenied` for a reply that does not describe exactly one item, `Result::NotEnoughMemory` for none,
    ///         `Result::InvalidParameter` without attributes; a refusal; a platform error.
    [[nodiscard]] virtual ResultCode SetPathAttributes(const std::wstring& path, const std::shared_ptr<IServerAttributes>& attributes,
                                                       std::shared_ptr<IServerAttributes>& newAttributes) = 0;

    /// Slot 17. Reads a mappings reply; no request is made.
    /// @param response          stays the caller's.
    /// @param[in,out] mappings  appended to; the caller deletes the records.
    /// @return the number of records appended.
    virtual std::uint32_t GetMappingsFromResponse(const ResponseBuffer& response, std::vector<CMapping*>& mappings) = 0;

    /// Slot 18. A folder and what is in it. `CloseRequestHandle` with the path ends it.
    ///
    /// A child without readable times is left out. A child whose members cannot be converted ends the list: the children after it are
    /// missing, and the result is still 0.
    /// @param path              server path.
    /// @param[in,out] children  appended to, even if the folder's own record cannot be read.
    /// @param[out] folder       the folder itself.
    /// @param cancelEvent       tested once before anything is sent; may be null.
    /// @return `Result::InvalidParameter` for an empty path or before `SetServer`, `Result::Cancelled` when cancelled,
    ///         `Result::InvalidData` for a reply without the folder, `Result::NotEnoughMemory` for none, `Result::Retry`; a refusal; a
    ///         platform error.
    [[nodiscard]] virtual ResultCode GetPathListing(const std::wstring& path, ServerItemList& children,
                                                    std::shared_ptr<IServerAttributes>& folder, const CancelEvent* cancelEvent) = 0;

    /// Slot 19. Deletes an item.
    /// @param path        server path.
    /// @param attributes  names the revision to delete; may be empty for any.
    /// @return `Result::NotEnoughMemory` for a reply without a body; a refusal, `Result::RefusalBase` also for a failed transfer; a
    ///         platform error of the set-up.
    [[nodiscard]] virtual ResultCode DeletePath(const std::wstring& path, const std::shared_ptr<IServerAttributes>& attributes) = 0;

    /// Slot 20. Renames an item in its folder (over whatever has the new name), or moves it to another.
    /// @param source              server path of the item.
    /// @param target              the item's new server path; a path in another folder is a move. Folders are compared without case.
    /// @param overwrite           1 lets a move replace its target.
    /// @param[out] newAttributes  the item afterwards.
    /// @return `Result::InvalidData` for a reply that does not describe exactly one item, `Result::NotEnoughMemory` for none; a refusal; a
    ///         platform error.
    [[nodiscard]] virtual ResultCode RenamePath(const std::wstring& source, const std::wstring& target, std::uint32_t overwrite,
                                                std::shared_ptr<IServerAttributes>& newAttributes) = 0;

    /// Slot 21. Tells the server that this device carried out a remote wipe. With API 1.0 nothing is sent.
    /// @param userName  the user's name.
    /// @param deviceId  the machine's name.
    /// @return the bare HTTP status of a refusal; `Result::InsufficientBuffer` for a field that is too long (nothing is sent); a platform
    ///         error.
    [[nodiscard]] virtual ResultCode AcknowledgeRemoteWipe(const std::wstring& userName, const std::wstring& deviceId) = 0;

    /// Slot 22. Ends the request that another thread runs for a path; does nothing if there is none. Works for listings, uploads, downloads
    /// and the change feed.
    /// @param path  the server path that the operation was given; "/notifs" for `GetChanges`.
    /// @return 0. The ended operation returns a platform error. If a reply's headers have arrived by then (replies into memory only), the
    ///         bytes received so far count as its body: a listing returns `Result::InvalidData`, or `Result::NotEnoughMemory` without a
    ///         body, the change feed may return 0.
    virtual ResultCode CloseRequestHandle(const std::wstring& path) = 0;

    /// Slot 23. Creates a folder.
    /// @param path             server path of the new folder.
    /// @param[out] attributes  the folder.
    /// @return `Result::AccessDenied` for a reply that does not describe exactly one item, `Result::NotEnoughMemory` for none; a refusal; a
    ///         platform error.
    [[nodiscard]] virtual ResultCode CreateFolder(const std::wstring& path, std::shared_ptr<IServerAttributes>& attributes) = 0;

    /// Slot 24. Sends a whole local file, or a delta against the server's version. `CloseRequestHandle` with the server path ends it.
    /// @param localPath           the file to send; must not change meanwhile.
    /// @param serverPath          the item's path.
    /// @param[in,out] attributes  times, attribute bits, size and revision to send; then what the server reports, also for
    ///                            `Result::Conflict`.
    /// @param deltaFlag           non-zero: `localPath` is a delta.
    /// @param cancelEvent         tested before anything is sent, after each block and once the server has answered.
    /// @param progress            may be empty.
    /// @return `Result::Cancelled` when cancelled, `Result::InvalidData` for an unreadable reply, `Result::InvalidServerResponse` for none,
    ///         `Result::Retry`, `Result::InvalidParameter` without attributes or flag, `Result::EndOfFile` if the file shrinks meanwhile,
    ///         `Result::InsufficientBuffer` for a name that is too long for its part's header (nothing is sent); a refusal; a platform
    ///         error.
    [[nodiscard]] virtual ResultCode UploadFile(const std::wstring& localPath, const std::wstring& serverPath,
                                                std::shared_ptr<IServerAttributes>& attributes, const std::uint32_t* deltaFlag,
                                                const CancelEvent& cancelEvent, const std::shared_ptr<IProgressCallback>& progress) = 0;

    /// Slot 25. Sends one chunk of a local file. `CloseRequestHandle` with the server path ends it.
    /// @param localPath           the whole file.
    /// @param serverPath          the item's path.
    /// @param[in,out] attributes  the item's times, attribute bits, size and revision; then what the server reports.
    /// @param uploadId            the caller's identifier of the whole upload.
    /// @param offset              the chunk's first byte.
    /// @param[in,out] length      the chunk's bytes; cut at the size in the attributes, to 0 beyond it.
    /// @param beginFlag           non-zero for an upload's first chunk.
    /// @param cancelEvent         tested like `UploadFile`'s.
    /// @param progress            may be empty.
    /// @return like `UploadFile`, but `Result::InvalidData` also for a reply without a body and `Result::InvalidServerResponse` for a
    ///         refusal without one; `Result::InvalidParameter` also for a null pointer and a negative offset, length or size;
    ///         `Result::EndOfFile` for a file that ends before the chunk does (nothing is sent).
    [[nodiscard]] virtual ResultCode ResumableUpload(const std::wstring& localPath, const std::wstring& serverPath,
                                                     std::shared_ptr<IServerAttributes>& attributes, const Quendra::UploadId& uploadId,
                                                     const std::int64_t* offset, std::int64_t* length, std::int32_t beginFlag,
                                                     const CancelEvent& cancelEvent,
                                                     const std::shared_ptr<IProgressCallback>& progress) = 0;

    /// Slot 26. Abandons a chunked upload.
    /// @param serverPath  the path that its chunks were sent to.
    /// @param uploadId    its identifier.
    /// @return `Result::Retry`; a refusal; a platform error.
    [[nodiscard]] virtual ResultCode CancelUpload(const std::wstring& serverPath, const Quendra::UploadId& uploadId) = 0;

    /// Slot 27. Finishes a chunked upload, under another path.
    /// @param serverPath       the path that its chunks were sent to.
    /// @param newServerPath    the path that the item gets; without CR, LF and NUL.
    /// @param uploadId         its identifier.
    /// @param[out] attributes  the item.
    /// @return `Result::InvalidData` for a reply that does not describe exactly one item, `Result::InvalidParameter` for a path that cannot
    ///         be sent, `Result::Retry`; a refusal; a platform error.
    [[nodiscard]] virtual ResultCode CompleteUpload(const std::wstring& serverPath, const std::wstring& newServerPath,
                                                    const Quendra::UploadId& uploadId, std::shared_ptr<IServerAttributes>& attributes) = 0;

    /// Slot 28. Asks for the state of a chunked upload.
    /// @param serverPath   the path that its chunks were sent to.
    /// @param uploadId     its identifier.
    /// @param[out] offset  bytes received; unchanged if the server does not report it.
    /// @param[out] locked  1 or 0; unchanged if the server does not report it.
    /// @return `Result::NotEnoughMemory` for a reply without a body, `Result::InvalidData` for one that cannot be read,
    ///         `Result::InvalidParameter` for a null pointer, `Result::Retry`; a refusal; a platform error.
    [[nodiscard]] virtual ResultCode GetResumableUploadMetadata(const std::wstring& serverPath, const Quendra::UploadId& uploadId,
                                                                std::int64_t* offset, std::uint32_t* locked) = 0;

    /// Slot 29. Receives a whole file, or, with a signature of the local one, a delta against it. `CloseRequestHandle` with the server
    /// path ends it.
    /// @param serverPath          the item's path.
    /// @param localPath           created or replaced once the server sends the content; after a failure the bytes received so far stay.
    /// @param attributes          names the revision to receive; may be empty for the newest.
    /// @param[out] outAttributes  the item after the transfer: requested again from an old server, else `attributes`.
    /// @param signaturePath       local signature file; empty for a whole file.
    /// @param cancelEvent         tested before anything is sent and after each block.
    /// @param progress            may be empty.
    /// @return `Result::Cancelled` when cancelled, `Result::ConnectionBroken` for a body that ends early, `Result::InsufficientBuffer` for
    ///         a delta's name as for `UploadFile`'s; a refusal: of a whole file `Result::RefusalBase` plus the "errorId" (or alone without
    ///         one), of a delta `Result::RefusalBase` plus the HTTP status; a platform error.
    [[nodiscard]] virtual ResultCode DownloadFile(const std::wstring& serverPath, const std::wstring& localPath,
                                                  const std::shared_ptr<IServerAttributes>& attributes,
                                                  std::shared_ptr<IServerAttributes>& outAttributes, const std::wstring& signaturePath,
                                                  const CancelEvent& cancelEvent, const std::shared_ptr<IProgressCallback>& progress) = 0;

    /// Slot 30. Receives a range of a file and writes it at the same position of the local file. `CloseRequestHandle` with the server
    /// path ends it. The reply is not checked against the range: all bytes received are written, starting at the range's first byte.
    /// @param serverPath          the item's path.
    /// @param localPath           must exist, except for a range that begins at 0 or at a multiple of 4 GiB: that creates or truncates it.
    /// @param attributes          names the revision to receive; may be empty for the newest.
    /// @param[out] outAttributes  as `DownloadFile` gives it.
    /// @param skip                first byte of the range.
    /// @param count               bytes of the range.
    /// @param cancelEvent         tested like `DownloadFile`'s.
    /// @param progress            may be empty.
    /// @return `Result::Cancelled` when cancelled, `Result::ConnectionBroken` for a body that ends early, `Result::InvalidParameter` for a
    ///         null pointer; a refusal (`Result::RefusalBase` plus the HTTP status); a platform error.
    [[nodiscard]] virtual ResultCode DownloadData(const std::wstring& serverPath, const std::wstring& localPath,
                                                  const std::shared_ptr<IServerAttributes>& attributes,
                                                  std::shared_ptr<IServerAttributes>& outAttributes, const std::uint64_t* skip,
                                                  const std::int64_t* count, const CancelEvent& cancelEvent,
                                                  const std::shared_ptr<IProgressCallback>& progress) = 0;

    /// Slot 31. Publishes audit data.
    /// @param data  UTF-8; at most 1018 characters as a form encodes it (1024 with the field's name).
    /// @return `Result::ServerDisabled` for a server without an audit endpoint, `Result::InsufficientBuffer` for data that is too long
    ///         (nothing is sent); a refusal; a platform error.
    [[nodiscard]] virtual ResultCode PublishSyncStats(const std::string& data) = 0;

    /// Slot 32. Asks the server to share items with recipients.
    /// @param request  what to share; released when the operation ends.
    /// @return `Result::NotEnoughMemory` for a reply without a body, `Result::InsufficientBuffer` for a field that is too long (nothing is
    ///         sent), `Result::InvalidParameter` without a request; a refusal; a platform error.
    [[nodiscard]] virtual ResultCode GenerateLink(std::shared_ptr<ShareRequest> request) = 0;

    /// Slot 33. Ends the instance like slot 0. If the pointer may be null, call `ReleaseInstance` instead.
    virtual void Release() = 0;

    /// @cond
#if defined(_WIN32)
    // The macro turns a caller's `SetPort` into these.
    ResultCode SetPortA(int port)
    {
        return SetPort(port);
    }
    ResultCode SetPortW(int port)
    {
        return SetPort(port);
    }
#endif
    /// @endcond
};

/// Ends an instance like `Release`; does nothing for a null pointer.
/// @param instance  may be null.
inline void ReleaseInstance(IQuendraHttpAPI* instance) noexcept
{
    delete instance;
}

/// Sets the host's tracing provider. Call it once, before the first instance is created.
/// @param handle  as registered with the tracing library; the host owns it. 0 for none.
/// @return 0.
QUENDRA_HTTP_API std::int32_t Init(std::uint64_t handle);

/// Does nothing; the matching call to `Init`.
QUENDRA_HTTP_API void Exit();

/// Creates an instance that uses the library's own transport.
/// @param deviceName  what login and registration call this machine.
/// @return the instance, to be ended by slot 0, slot 33 or `ReleaseInstance`; null if memory runs out.
QUENDRA_HTTP_API IQuendraHttpAPI* CreateInstance(const std::wstring& deviceName);

/// Creates an instance that uses a caller's transport.
/// @param factory     kept alive by the instance.
/// @param deviceName  what login and registration call this machine.
/// @return as `CreateInstance`; null also without a factory.
QUENDRA_HTTP_API IQuendraHttpAPI* CreateInstanceWithFactory(const std::shared_ptr<IWinHttpFactory>& factory,
                                                            const std::wstring& deviceName);

/// @cond
#if defined(_WIN32)
#pragma pop_macro("SetPort")
#endif
/// @endcond
