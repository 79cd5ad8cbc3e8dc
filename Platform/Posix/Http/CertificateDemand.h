#pragma once

/// @file
/// Whether a server has asked for a client certificate.

#include "CertificateStore.h"
#include "EasyHandle.h"

namespace Quendra::Platform
{
/// Up to TLS 1.2 a server that demands a certificate refuses the handshake with an alert that has many causes. What tells this cause is
/// that the server asked for a certificate before. Used by one thread at a time; outlives the connections that it watches.
class CertificateDemand
{
public:
    /// Forgets what was asked so far, and watches the TLS connections that the exchange opens.
    /// @param trusted  the authorities that these trust; must outlive the exchange.
    /// @throws what `EasyHandle::Set` throws
    void AttachTo(EasyHandle& easy, CertificateStore& trusted);

    bool IsMade() const noexcept { return m_isMade; }

private:
    static CURLcode Watch(CURL* easy, void* context, void* self) noexcept;

    CertificateStore* m_trusted = nullptr;
    bool m_isMade = false;
};
} // namespace Quendra::Platform
