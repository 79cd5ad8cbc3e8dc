#pragma once

/// @file
/// Sessions and connections: the settings and the pooled connections that requests use.

#include "CertificateStore.h"
#include "ConnectionPool.h"
#include "HttpObject.h"

#include <memory>
#include <string>
#include <utility>

namespace Quendra::Platform
{

class Session final : public TimedObject
{
public:
    explicit Session(std::string userAgent)
        : TimedObject(nullptr, Timeouts()), m_userAgent(std::move(userAgent)), m_pool(std::make_shared<ConnectionPool>())
    {
    }

    /// Empty: no User-Agent header.
    const std::string& UserAgent() const noexcept { return m_userAgent; }
    CertificateStore& Certificates() noexcept { return m_certificates; }
    ConnectionPool& Pool() const noexcept { return *m_pool; }

private:
    const std::string m_userAgent;
    CertificateStore m_certificates;
    const std::shared_ptr<ConnectionPool> m_pool;
};

/// A server and a port; the connection is made when a request is sent.
class Connection final : public HttpObject
{
public:
    Connection(std::shared_ptr<Session> session, std::string server, INTERNET_PORT port)
        : HttpObject(session.get()), m_session(std::move(session)), m_server(std::move(server)), m_port(port)
    {
    }

    Session& GetSession() const noexcept { return *m_session; }
    const std::string& Server() const noexcept { return m_server; }
    /// 0: the scheme's own.
    INTERNET_PORT Port() const noexcept { return m_port; }

private:
    const std::shared_ptr<Session> m_session;
    const std::string m_server;
    const INTERNET_PORT m_port;
};

} // namespace Quendra::Platform
