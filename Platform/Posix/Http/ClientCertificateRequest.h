#pragma once

/// @file
/// Whether a server has asked for a client certificate.

#include "CertificateStore.h"
#include "EasyHandle.h"

namespace Quendra::Platform
{

/// Up to TLS 1.2 a server that demands a client certificate ends the handshake with an alert that has many possible causes. Only the
/// request for a certificate before it identifies this cause. Used by one thread at a time; outlives the connections that it watches.
class ClientCertificateRequest
{
public:
    /// @param trusted  the authorities that the connections trust; must outlive this object.
    explicit ClientCertificateRequest(CertificateStore& trusted) noexcept : m_trusted(trusted) {}

    /// Watches the TLS connections that the handle or a copy of it opens.
    /// @throws what `EasyHandle::Set` throws
    void AttachTo(EasyHandle& easy);

    /// Forgets the requests so far.
    void Reset() noexcept { m_isReceived = false; }
    bool IsReceived() const noexcept { return m_isReceived; }

private:
    static CURLcode Watch(CURL* easy, void* context, void* self) noexcept;

    CertificateStore& m_trusted;
    bool m_isReceived = false;
};

} // namespace Quendra::Platform
