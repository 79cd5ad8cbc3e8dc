#pragma once

/// @file
/// The library's own transport: thin classes over WinHTTP, each owning one handle. `WinHttpImpl.cpp` holds handle, session,
/// connection and factory; requests are in `WinHttpImplRequest.h`.

#include "Tracing.h"
#include "Wiping.h"

#include "Platform/Platform.h"
#include "QuendraHttp/Transport.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <string>

/// An error value as an HRESULT: 0 stays 0.
/// Its form is that of the platform's HRESULT_FROM_WIN32
/// (https://learn.microsoft.com/windows/win32/api/winerror/nf-winerror-hresult_from_win32).
[[nodiscard]] ResultCode FoldIntoHResult(DWORD error) noexcept;

/// Traces the last error with a message.
/// @return the last error.
[[nodiscard]] ResultCode TraceLastError(const FunctionTraceScope& trace, const TraceFormat<DWORD>& failed);

/// A session's timeouts, in milliseconds; 0 for no limit.
struct SessionTimeouts
{
    std::int32_t resolve;
    std::int32_t connect;
    std::int32_t send;
    std::int32_t receive;
};

/// A session's timeouts before its first connection and after an operation that changed them. A connection sets the timeouts from the
/// settings.
inline constexpr SessionTimeouts kSessionTimeouts{.resolve = 60000, .connect = 60000, .send = 300000, .receive = 300000};

/// Owns one WinHTTP handle.
///
/// Another thread may close the handle while the owner's thread uses it. It is closed exactly once; a call with a closed handle fails.
class WinHttpHandle
{
public:
    WinHttpHandle();
    virtual ~WinHttpHandle(); // slot 0

    WinHttpHandle(const WinHttpHandle&) = delete;
    WinHttpHandle& operator=(const WinHttpHandle&) = delete;

    /// Slot 1. Closes the handle; does nothing if there is none.
    virtual void Close();

    /// Takes ownership of a freshly opened handle; one that is already held is closed.
    /// @param handle  null closes the held one and reports failure.
    /// @return whether a handle is held now.
    bool Attach(HINTERNET handle);

    /// `WinHttpSetOption` on the handle.
    /// @param length  size of the buffer in bytes.
    /// @return 0 or an HRESULT.
    ResultCode SetOption(DWORD option, void* buffer, DWORD length);

    /// `WinHttpQueryOption` on the handle.
    /// @param[in,out] length  size of the buffer, then of the value, in bytes.
    /// @return 0 or an HRESULT.
    ResultCode QueryOption(DWORD option, void* buffer, DWORD& length);

protected:
    [[nodiscard]] HINTERNET Handle() const noexcept { return m_handle.load(); }

private:
    std::atomic<HINTERNET> m_handle{nullptr};
};

/// An instance's WinHTTP session and its session token.
class WinHttpSession : public WinHttpHandle, public IWinHttpSession
{
public:
    ~WinHttpSession() override { WipeToken(); }

    ResultCode Initialise() override;
    int SetTimeouts(std::int32_t resolve, std::int32_t connect, std::int32_t send, std::int32_t receive) override;
    void SetSessionToken(const std::wstring& token) override;
    std::wstring GetSessionToken() override;
    void* GetHandle() override { return Handle(); }

private:
    void WipeToken() noexcept { const ScopedWipe wipe(m_sessionToken); }

    std::wstring m_sessionToken;
    std::mutex m_tokenLock;
};

/// The WinHTTP connection handle for one server and port.
class WinHttpConnection : public WinHttpHandle, public IWinHttpConnection
{
public:
    ResultCode Initialise(const std::wstring& server, std::uint16_t port, const std::shared_ptr<IWinHttpSession>& session,
                          std::uint64_t sendTimeoutOverride, std::uint64_t receiveTimeoutOverride) override;
    void* GetHandle() override { return Handle(); }
};

/// Makes the objects above, and requests.
class WinHttpFactory : public IWinHttpFactory
{
public:
    std::shared_ptr<IWinHttpSession> CreateSession() override;
    std::shared_ptr<IWinHttpConnection> CreateConnection() override;
    std::shared_ptr<IWinHttpRequest> CreateRequest(const std::shared_ptr<IWinHttpSession>& session) override;
};
