#pragma once

/// @file
/// The bytes of one connection, plain or over TLS.

#include "System.h"

#include <filesystem>
#include <functional>
#include <memory>

namespace ApplianceParts
{

class IChannel
{
public:
    virtual ~IChannel() = default;

    /// Reads what is there, waiting for the first byte; 0 at the end, negative on a failure.
    [[nodiscard]] virtual std::ptrdiff_t Read(char* buffer, std::size_t size) = 0;
    [[nodiscard]] virtual std::ptrdiff_t Write(const char* data, std::size_t size) = 0;
    /// Whether decrypted bytes lie ready, which the socket knows nothing of.
    [[nodiscard]] virtual bool HasPending() const = 0;
};

/// Makes the channel of an accepted connection; null where the client did not complete its greeting.
using ChannelFactory = std::function<std::unique_ptr<IChannel>(System::Socket)>;

[[nodiscard]] ChannelFactory PlainChannels();

/// @throws std::runtime_error where the certificate or the key cannot be used, or this build has no TLS.
[[nodiscard]] ChannelFactory TlsChannels(const std::filesystem::path& certificate, const std::filesystem::path& privateKey);

} // namespace ApplianceParts
