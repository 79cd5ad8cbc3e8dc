#pragma once

/// @file
/// Sessions and connections: the settings and the connections that requests are made with.

#include "ConnectionPool.h"
#include "HttpObject.h"

#include <memory>
#include <string>
#include <utility>

/// Where certificates are looked up that others vouch for; empty: in the system's places.
struct CertificatePlaces
{
    std::string file;
    std::string folder;

    /// What SSL_CERT_FILE and SSL_CERT_DIR say, as for other programs.
    static CertificatePlaces FromEnvironment();
};

class Session final : public TimedObject
{
public:
    explicit Session(std::string userAgent)
        : TimedObject(Timeouts()),
          m_userAgent(std::move(userAgent)),
          m_certificates(CertificatePlaces::FromEnvironment()),
          m_pool(std::make_shared<ConnectionPool>())
    {
    }

    /// Empty: requests name no user agent.
    const std::string& UserAgent() const noexcept { return m_userAgent; }
    const CertificatePlaces& Certificates() const noexcept { return m_certificates; }
    ConnectionPool& Pool() const noexcept { return *m_pool; }

private:
    const std::string m_userAgent;
    const CertificatePlaces m_certificates;
    const std::shared_ptr<ConnectionPool> m_pool;
};

/// A server and a port; nothing is connected before a request is sent.
class Connection final : public HttpObject
{
public:
    Connection(std::shared_ptr<Session> session, std::string server, INTERNET_PORT port)
        : m_session(std::move(session)), m_server(std::move(server)), m_port(port)
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
