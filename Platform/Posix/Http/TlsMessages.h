#pragma once

/// @file
/// The messages of TLS itself that tell why a connection ended: that the server wants a client certificate, and that it has sent
/// everything.

#include "CertificateStore.h"
#include "EasyHandle.h"

namespace Quendra::Platform
{

/// Used by one thread at a time; outlives the connections that it watches.
class TlsMessages
{
public:
    /// @param trusted  the authorities that the connections trust; must outlive this object.
    explicit TlsMessages(CertificateStore& trusted) noexcept : m_trusted(trusted) {}

    /// Watches the TLS connections that the handle or a copy of it opens.
    /// @throws what `EasyHandle::Set` throws
    void AttachTo(EasyHandle& easy);

    /// Forgets what was said so far.
    void Reset() noexcept { m_wantsCertificate = m_isEnded = false; }

    /// Up to TLS 1.2 a server that demands a client certificate ends the handshake with an alert that has many possible causes. Only the
    /// request for a certificate before it identifies this cause.
    bool WantsCertificate() const noexcept { return m_wantsCertificate; }

    /// Whether "close_notify" has come. Without it the end of a connection may be an attacker's.
    bool IsEnded() const noexcept { return m_isEnded; }

private:
    static CURLcode Watch(CURL* easy, void* context, void* self) noexcept;

    CertificateStore& m_trusted;
    bool m_wantsCertificate = false;
    bool m_isEnded = false;
};

} // namespace Quendra::Platform
