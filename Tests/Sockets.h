#pragma once

/// @file
/// The few differences between BSD sockets and Winsock that the test servers meet. Include it before <windows.h>.

#if defined(_WIN32)
#include <winsock2.h>
#include <ws2tcpip.h>
#else
#include <arpa/inet.h>
#include <cerrno>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
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
inline constexpr Handle kNone = INVALID_SOCKET;

inline void Initialise()
{
    static const int result = [] {
        WSADATA data = {};
        return WSAStartup(MAKEWORD(2, 2), &data);
    }();
    static_cast<void>(result);
}

inline void Close(Handle socket)
{
    closesocket(socket);
}

inline void MakeNonBlocking(Handle socket)
{
    unsigned long on = 1;
    ioctlsocket(socket, static_cast<long>(FIONBIO), &on);
}

inline bool WouldBlock()
{
    return WSAGetLastError() == WSAEWOULDBLOCK;
}

inline constexpr int kSendFlags = 0;
#else
using Handle = int;
using Length = socklen_t;
inline constexpr Handle kNone = -1;

inline void Initialise()
{
}

inline void Close(Handle socket)
{
    ::close(socket);
}

inline void MakeNonBlocking(Handle socket)
{
    ::fcntl(socket, F_SETFL, ::fcntl(socket, F_GETFL, 0) | O_NONBLOCK);
}

inline bool WouldBlock()
{
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

inline constexpr int kSendFlags = MSG_NOSIGNAL;
#endif

/// Waits a while until the socket can be read (or written); false where it cannot yet.
inline bool IsReady(Handle socket, bool forWriting, int milliseconds)
{
#if defined(_WIN32)
    WSAPOLLFD entry = {socket, static_cast<short>(forWriting ? POLLWRNORM : POLLRDNORM), 0};
    return WSAPoll(&entry, 1, milliseconds) > 0;
#else
    pollfd entry = {socket, static_cast<short>(forWriting ? POLLOUT : POLLIN), 0};
    return ::poll(&entry, 1, milliseconds) > 0;
#endif
}

/// Bytes moved, 0 at the end of the stream, negative on failure.
inline std::ptrdiff_t Receive(Handle socket, char* target, std::size_t capacity)
{
#if defined(_WIN32)
    return ::recv(socket, target, static_cast<int>(std::min<std::size_t>(capacity, 1U << 30)), 0);
#else
    return ::recv(socket, target, capacity, 0);
#endif
}

inline std::ptrdiff_t Send(Handle socket, const char* source, std::size_t size)
{
#if defined(_WIN32)
    return ::send(socket, source, static_cast<int>(std::min<std::size_t>(size, 1U << 30)), kSendFlags);
#else
    return ::send(socket, source, size, kSendFlags);
#endif
}

/// Makes the closing of the socket a reset instead of an orderly end.
inline void ResetWhenClosed(Handle socket)
{
    linger option = {};
    option.l_onoff = 1;
    option.l_linger = 0;
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&option), static_cast<Length>(sizeof(option)));
}
} // namespace Sockets
