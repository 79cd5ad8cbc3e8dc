#pragma once

/// @file
/// The few differences between BSD sockets and Winsock that the test servers meet. Include it before <windows.h>.

#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#endif

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace Sockets
{
#if defined(_WIN32)
using Handle = SOCKET;
using Length = int;
using Size = int;
using PollEntry = WSAPOLLFD;
inline constexpr int kSendFlags = 0;
inline const auto Close = closesocket;
inline const auto Control = ioctlsocket;
inline const auto Poll = WSAPoll;

inline void Initialise()
{
    static WSADATA data = {};
    static const int result = WSAStartup(MAKEWORD(2, 2), &data);
    static_cast<void>(result);
}

inline bool WouldBlock()
{
    return WSAGetLastError() == WSAEWOULDBLOCK;
}
#else
using Handle = int;
using Length = socklen_t;
using Size = std::size_t;
using PollEntry = pollfd;
inline constexpr int kSendFlags = MSG_NOSIGNAL;
inline const auto Close = ::close;
inline const auto Control = ::ioctl;
inline const auto Poll = ::poll;

inline void Initialise()
{
}

inline bool WouldBlock()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}
#endif

inline constexpr Handle kNone = static_cast<Handle>(-1);

inline void MakeNonBlocking(Handle socket)
{
    unsigned long on = 1;
    Control(socket, static_cast<long>(FIONBIO), &on);
}

/// Waits a while until the socket can be read (or written); false where it cannot yet.
inline bool IsReady(Handle socket, bool forWriting, int milliseconds)
{
    PollEntry entry = {socket, static_cast<short>(forWriting ? POLLOUT : POLLIN), 0};
    return Poll(&entry, 1, milliseconds) > 0;
}

/// Bytes moved, 0 at the end of the stream, negative on failure.
inline std::ptrdiff_t Receive(Handle socket, char* target, std::size_t capacity)
{
    return ::recv(socket, target, static_cast<Size>(capacity), 0);
}

inline std::ptrdiff_t Send(Handle socket, const char* source, std::size_t size)
{
    return ::send(socket, source, static_cast<Size>(std::min<std::size_t>(size, 1U << 30)), kSendFlags);
}

/// Makes the closing of the socket a reset instead of an orderly end.
inline void ResetWhenClosed(Handle socket)
{
    const linger option = {1, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&option), static_cast<Length>(sizeof(option)));
}
} // namespace Sockets
