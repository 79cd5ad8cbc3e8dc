/// @file
/// Requests over TLS: whose certificates are taken, and that a broken connection kills no process.

#include "PosixHttpSupport.h"
#include "RawServer.h"
#include "Sockets.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/time.h>

using namespace HttpCalls;

namespace
{
/// A folder with self-signed certificates for tests, each with its key.
class Certificates
{
public:
    Certificates()
    {
        std::string pattern = std::filesystem::temp_directory_path() / "quendra-tls-XXXXXX";
        m_folder = ::mkdtemp(pattern.data());
        Make("loopback", "IP:127.0.0.1,DNS:localhost", kDay);
        Make("other", "DNS:other.test", kDay);
        Make("expired", "IP:127.0.0.1", -kDay);
    }
    ~Certificates() { std::filesystem::remove_all(m_folder); }

    std::string File(const std::string& name, const char* kind) const { return m_folder / (name + kind); }

private:
    static constexpr long kDay = 24 * 60 * 60;

    /// @param end  seconds from now.
    void Make(const std::string& name, const char* subjects, long end)
    {
        const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_EC_gen("P-256"), EVP_PKEY_free);
        const std::unique_ptr<X509, decltype(&X509_free)> certificate(X509_new(), X509_free);
        X509_set_version(certificate.get(), X509_VERSION_3);
        X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -2 * kDay);
        X509_gmtime_adj(X509_getm_notAfter(certificate.get()), end);
        X509_set_pubkey(certificate.get(), key.get());
        X509_NAME* const subject = X509_get_subject_name(certificate.get());
        X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8, reinterpret_cast<const unsigned char*>(name.c_str()), -1, -1, 0);
        X509_set_issuer_name(certificate.get(), subject);
        const std::unique_ptr<X509_EXTENSION, decltype(&X509_EXTENSION_free)> names(
            X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, subjects), X509_EXTENSION_free);
        X509_add_ext(certificate.get(), names.get(), -1);
        X509_sign(certificate.get(), key.get(), EVP_sha256());

        using File = std::unique_ptr<std::FILE, decltype(&std::fclose)>;
        const File certificateFile(std::fopen(this->File(name, ".crt").c_str(), "w"), std::fclose);
        PEM_write_X509(certificateFile.get(), certificate.get());
        const File keyFile(std::fopen(this->File(name, ".key").c_str(), "w"), std::fclose);
        PEM_write_PrivateKey(keyFile.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr);
    }

    std::filesystem::path m_folder;
};

/// A server that shakes hands and then does as its script says, connection by connection.
class TlsServer
{
public:
    using Script = std::function<void(SSL*, int socket)>;

    TlsServer(const Certificates& certificates, const std::string& name, Script script)
        : m_context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free),
          m_script(std::move(script)),
          m_listener(::socket(AF_INET, SOCK_STREAM, 0))
    {
        SSL_CTX_use_certificate_file(m_context.get(), certificates.File(name, ".crt").c_str(), SSL_FILETYPE_PEM);
        SSL_CTX_use_PrivateKey_file(m_context.get(), certificates.File(name, ".key").c_str(), SSL_FILETYPE_PEM);
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof(address);
        ::bind(m_listener, reinterpret_cast<sockaddr*>(&address), size);
        ::listen(m_listener, 8);
        ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &size);
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { Run(); });
    }
    ~TlsServer()
    {
        m_stopping = true;
        m_thread.join();
        ::close(m_listener);
    }

    std::uint16_t Port() const { return m_port; }
    int ConnectionCount() const { return m_connections; }

    /// Reads until the blank line; empty where the connection ends before.
    static std::string ReadHead(SSL* ssl)
    {
        std::string head;
        std::array<char, 4096> block = {};
        while (head.find("\r\n\r\n") == std::string::npos)
        {
            const int count = SSL_read(ssl, block.data(), static_cast<int>(block.size()));
            if (count <= 0)
                return {};
            head.append(block.data(), static_cast<std::size_t>(count));
        }
        return head;
    }

    static void Send(SSL* ssl, const std::string& text) { SSL_write(ssl, text.data(), static_cast<int>(text.size())); }

private:
    void Run()
    {
        // This thread's writes may meet a client that has gone; SIGPIPE is for the client's own writes to be caught by.
        sigset_t pipes = {};
        sigemptyset(&pipes);
        sigaddset(&pipes, SIGPIPE);
        ::pthread_sigmask(SIG_BLOCK, &pipes, nullptr);
        while (!m_stopping)
        {
            if (!Sockets::IsReady(m_listener, false, 20))
                continue;
            const int socket = ::accept(m_listener, nullptr, nullptr);
            const timeval limit = {10, 0};
            ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
            ++m_connections;
            const std::unique_ptr<SSL, decltype(&SSL_free)> ssl(SSL_new(m_context.get()), SSL_free);
            SSL_set_fd(ssl.get(), socket);
            if (SSL_accept(ssl.get()) == 1)
                m_script(ssl.get(), socket);
            ::close(socket);
        }
    }

    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> m_context;
    const Script m_script;
    const int m_listener;
    std::uint16_t m_port = 0;
    std::atomic<bool> m_stopping = false;
    std::atomic<int> m_connections = 0;
    std::thread m_thread;
};

class PosixTls : public testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        certificates = std::make_unique<Certificates>();
        ::setenv("SSL_CERT_DIR", "/nonexistent", 1);
    }
    static void TearDownTestSuite()
    {
        certificates.reset();
        ::unsetenv("SSL_CERT_DIR");
        ::unsetenv("SSL_CERT_FILE");
    }

    static HttpResult Get(std::uint16_t port, const std::string& trusted, const wchar_t* server = L"127.0.0.1")
    {
        ::setenv("SSL_CERT_FILE", certificates->File(trusted, ".crt").c_str(), 1);
        const HttpClient client(port, server);
        return Exchange(client.Open(L"GET", L"/", WINHTTP_FLAG_SECURE).Get());
    }

    static void AnswerAll(SSL* ssl, int)
    {
        while (!TlsServer::ReadHead(ssl).empty())
            TlsServer::Send(ssl, HttpReply(200, "secret"));
    }

    static std::unique_ptr<Certificates> certificates;
};
std::unique_ptr<Certificates> PosixTls::certificates;

TEST_F(PosixTls, TakesTrustedCertificatesOfTheRightHostOnly)
{
    struct Case
    {
        const char* served;
        const char* trusted;
        const wchar_t* server;
        DWORD error;
    };
    const Case cases[] = {
        {"loopback", "loopback", L"127.0.0.1", 0},   {"loopback", "loopback", L"localhost", 0},
        {"loopback", "other", L"127.0.0.1", 12175},  {"other", "other", L"127.0.0.1", 12175},
        {"expired", "expired", L"127.0.0.1", 12175}, {"loopback", "missing", L"127.0.0.1", 12175},
    };
    for (const auto& test : cases)
    {
        const TlsServer server(*certificates, test.served, AnswerAll);
        const auto result = Get(server.Port(), test.trusted, test.server);
        EXPECT_EQ(test.error, result.error) << test.served << " " << test.trusted;
        EXPECT_EQ(test.error == 0 ? "secret" : "", result.body);
    }
}

TEST_F(PosixTls, RefusesWhoSpeaksNoTls)
{
    RawServer plain([](RawConnection& connection) { connection.Send("HTTP/1.1 400 What\r\n\r\n"); });
    EXPECT_EQ(ERROR_WINHTTP_SECURE_FAILURE, Get(plain.Port(), "loopback").error);
}

TEST_F(PosixTls, KeepsItsConnection)
{
    const TlsServer server(*certificates, "loopback", AnswerAll);
    ::setenv("SSL_CERT_FILE", certificates->File("loopback", ".crt").c_str(), 1);
    const HttpClient client(server.Port());
    for (int count = 0; count < 5; ++count)
        EXPECT_EQ("secret", Exchange(client.Open(L"GET", L"/", WINHTTP_FLAG_SECURE).Get()).body);
    EXPECT_EQ(1, server.ConnectionCount());
}

TEST_F(PosixTls, NeverRedirectsToPlainHttp)
{
    RawServer plain(AnswerEach([](const std::string&) { return HttpReply(200, "plain"); }));
    const auto location = "Location: http://127.0.0.1:" + std::to_string(plain.Port()) + "/\r\n";
    const TlsServer server(*certificates, "loopback", [&](SSL* ssl, int) {
        TlsServer::ReadHead(ssl);
        TlsServer::Send(ssl, HttpReply(302, "", location));
    });
    EXPECT_EQ(ERROR_WINHTTP_REDIRECT_FAILED, Get(server.Port(), "loopback").error);
    EXPECT_EQ(0U, plain.ConnectionCount());

    // The other way is open.
    const TlsServer secure(*certificates, "loopback", AnswerAll);
    RawServer sender(AnswerEach(
        [&](const std::string&) { return HttpReply(301, "", "Location: https://127.0.0.1:" + std::to_string(secure.Port()) + "/\r\n"); }));
    EXPECT_EQ("secret", HttpClient(sender.Port()).Get().body);
}

TEST_F(PosixTls, TakesACutReplyForBroken)
{
    const TlsServer server(*certificates, "loopback", [](SSL* ssl, int) {
        TlsServer::ReadHead(ssl);
        TlsServer::Send(ssl, "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly so much");
    });
    const auto result = Get(server.Port(), "loopback");
    EXPECT_EQ(ERROR_WINHTTP_CONNECTION_ERROR, result.error);
    EXPECT_EQ("only so much", result.body);
}

TEST_F(PosixTls, SurvivesAResetWhileWriting)
{
    const TlsServer server(*certificates, "loopback", [](SSL* ssl, int socket) {
        TlsServer::ReadHead(ssl);
        Sockets::ResetWhenClosed(socket);
    });
    ::setenv("SSL_CERT_FILE", certificates->File("loopback", ".crt").c_str(), 1);
    ASSERT_EQ(SIG_DFL, std::signal(SIGPIPE, SIG_DFL));
    const HttpClient client(server.Port());
    const std::string block(100'000, 'x');
    for (int round = 0; round < 5; ++round)
    {
        const auto request = client.Open(L"POST", L"/", WINHTTP_FLAG_SECURE);
        ASSERT_EQ(ERROR_SUCCESS, SendWhole(request.Get(), {}, L"Content-Length: 1000000000"));
        DWORD error = ERROR_SUCCESS;
        for (int count = 0; count < 10'000 && error == ERROR_SUCCESS; ++count)
            error = ErrorOfCall(WinHttpWriteData(request.Get(), block.data(), static_cast<DWORD>(block.size()), nullptr));
        EXPECT_EQ(ERROR_WINHTTP_CONNECTION_ERROR, error);
    }
}
} // namespace
