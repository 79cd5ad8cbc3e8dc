#pragma once

/// @file
/// The bytes of one connection, plain or over TLS.

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>

namespace ApplianceParts
{

class IChannel
{
public:
    virtual ~IChannel() = default;

    /// Reads available bytes, waiting for the first; 0 at the end, negative on a failure.
    [[nodiscard]] virtual std::ptrdiff_t Read(char* buffer, std::size_t size) = 0;
    /// Writes some of the bytes; negative on a failure.
    [[nodiscard]] virtual std::ptrdiff_t Write(const char* data, std::size_t size) = 0;
    /// Tells the client that nothing more will be written.
    virtual void FinishWriting() = 0;
};

/// A connected socket.
class ISocket : public IChannel
{
public:
    /// Begins a step, such as a request's head or a block of a body. After its time, reading and writing fail. When all places are taken,
    /// the server ends the connection whose client has kept it waiting longest in one step.
    virtual void BeginStep(std::chrono::steady_clock::duration time) = 0;
    /// Whether the client is still connected and has sent nothing more: it waits for the reply.
    [[nodiscard]] virtual bool IsClientWaiting() const = 0;
};

/// Makes the TLS channel over an accepted socket, which must outlive it; null if the handshake failed.
using TlsAcceptor = std::function<std::unique_ptr<IChannel>(ISocket&)>;

/// @throws std::runtime_error if the certificate or the key cannot be used, or this build has no TLS.
[[nodiscard]] TlsAcceptor LoadTls(const std::filesystem::path& certificate, const std::filesystem::path& privateKey);

} // namespace ApplianceParts
