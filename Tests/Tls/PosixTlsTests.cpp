/// @file
/// Requests over TLS: whose certificates are taken, and that a broken connection kills no process.

#include "PosixHttpSupport.h"
#include "RawServer.h"
#include "TransferSupport.h"

#include <csignal>
#include <cstdlib>
#include <memory>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <string>

using namespace HttpCalls;

namespace
{
template <auto Free> struct Freeing
{
    template <class Type> void operator()(Type* object) const { Free(object); }
};
template <class Type, auto Free> using Owned = std::unique_ptr<Type, Freeing<Free>>;

/// A self-signed certificate with its key.
struct Certificate
{
    /// @param end  seconds from now.
    Certificate(const char* name, const char* subjects, long end) : key(EVP_EC_gen("P-256")), certificate(X509_new())
    {
        X509_set_version(certificate.get(), X509_VERSION_3);
        X509_gmtime_adj(X509_getm_notBefore(certificate.get()), -2 * kDay);
        X509_gmtime_adj(X509_getm_notAfter(certificate.get()), end);
        X509_set_pubkey(certificate.get(), key.get());
        X509_NAME* const subject = X509_get_subject_name(certificate.get());
        X509_NAME_add_entry_by_txt(subject, "CN", MBSTRING_UTF8, reinterpret_cast<const unsigned char*>(name), -1, -1, 0);
        X509_set_issuer_name(certificate.get(), subject);
        const Owned<X509_EXTENSION, X509_EXTENSION_free> names(X509V3_EXT_conf_nid(nullptr, nullptr, NID_subject_alt_name, subjects));
        X509_add_ext(certificate.get(), names.get(), -1);
        X509_sign(certificate.get(), key.get(), EVP_sha256());
    }

    static constexpr long kDay = 24 * 60 * 60;
    const Owned<EVP_PKEY, EVP_PKEY_free> key;
    const Owned<X509, X509_free> certificate;
};

/// The server's end of TLS, over a connection from and to which the bytes are carried.
class TlsConnection
{
public:
    /// Shakes hands.
    TlsConnection(RawConnection& connection, const Certificate& own)
        : m_connection(connection), m_context(SSL_CTX_new(TLS_server_method())), m_tls(SSL_new(m_context.get()))
    {
        SSL_use_certificate(m_tls.get(), own.certificate.get());
        SSL_use_PrivateKey(m_tls.get(), own.key.get());
        SSL_set_bio(m_tls.get(), BIO_new(BIO_s_mem()), BIO_new(BIO_s_mem()));
        Complete([this] { return SSL_accept(m_tls.get()); });
    }

    void ReadHead()
    {
        char last = '\0';
        for (std::string head; !head.ends_with("\r\n\r\n"); head += last)
            Complete([&] { return SSL_read(m_tls.get(), &last, 1); });
    }

    void Send(const std::string& text)
    {
        Complete([&] { return SSL_write(m_tls.get(), text.data(), static_cast<int>(text.size())); });
    }

private:
    /// Repeats a step of TLS until it has the bytes that it needs; one that has failed ends with its connection.
    template <class Step> void Complete(Step step)
    {
        for (bool isDone = false; !isDone;)
        {
            isDone = step() > 0;
            char* bytes = nullptr;
            const long size = BIO_get_mem_data(SSL_get_wbio(m_tls.get()), &bytes);
            m_connection.Send({bytes, static_cast<std::size_t>(size)});
            BIO_reset(SSL_get_wbio(m_tls.get()));
            if (!isDone)
                BIO_write(SSL_get_rbio(m_tls.get()), m_connection.Read(1).data(), 1);
        }
    }

    RawConnection& m_connection;
    const Owned<SSL_CTX, SSL_CTX_free> m_context;
    const Owned<SSL, SSL_free> m_tls;
};

class PosixTls : public testing::Test
{
protected:
    PosixTls() { ::setenv("SSL_CERT_DIR", "/nonexistent", 1); }
    ~PosixTls() override
    {
        ::unsetenv("SSL_CERT_DIR");
        ::unsetenv("SSL_CERT_FILE");
    }

    /// From now on, in place of any other.
    void Trust(const Certificate& certificate) const
    {
        const auto file = (folder / "trusted.crt").string();
        PEM_write_bio_X509(Owned<BIO, BIO_free>(BIO_new_file(file.c_str(), "w")).get(), certificate.certificate.get());
        ::setenv("SSL_CERT_FILE", file.c_str(), 1);
    }

    std::string Get(const RawServer& server, const wchar_t* name = L"127.0.0.1") const
    {
        return HttpClient(server.Port(), name).Get(L"/", WINHTTP_FLAG_SECURE);
    }

    static RawServer::Script AnswerAll(const Certificate& certificate, const std::string& reply)
    {
        return [&certificate, reply](RawConnection& connection) {
            for (TlsConnection tls(connection, certificate);; tls.Send(reply))
                tls.ReadHead();
        };
    }

    const TemporaryFolder folder;
    const Certificate loopback{"loopback", "IP:127.0.0.1,DNS:localhost", Certificate::kDay};
    const Certificate other{"other", "DNS:other.test", Certificate::kDay};
    const Certificate expired{"expired", "IP:127.0.0.1", -Certificate::kDay};
};

TEST_F(PosixTls, TakesTrustedCertificatesOfTheRightHostOnly)
{
    struct Case
    {
        const Certificate& served;
        const Certificate& trusted;
        const wchar_t* server;
        const char* outcome;
    };
    const Case cases[] = {{loopback, loopback, L"127.0.0.1", "200 secret"},
                          {loopback, loopback, L"localhost", "200 secret"},
                          {loopback, other, L"127.0.0.1", "12175"},
                          {other, other, L"127.0.0.1", "12175"},
                          {expired, expired, L"127.0.0.1", "12175"}};
    for (const auto& test : cases)
    {
        RawServer server(AnswerAll(test.served, HttpReply(200, "secret")));
        Trust(test.trusted);
        EXPECT_EQ(test.outcome, Get(server, test.server));
    }
    RawServer plain([](RawConnection& connection) { connection.Send("HTTP/1.1 400 What\r\n\r\n"); });
    EXPECT_EQ("12175", Get(plain)) << "no TLS at all";
    ::setenv("SSL_CERT_FILE", "/nonexistent", 1);
    EXPECT_EQ("12175", Get(plain));
}

TEST_F(PosixTls, KeepsItsConnection)
{
    Trust(loopback);
    RawServer server(AnswerAll(loopback, HttpReply(200, "secret")));
    const HttpClient client(server.Port());
    for (int count = 0; count < 5; ++count)
        EXPECT_EQ("200 secret", client.Get(L"/", WINHTTP_FLAG_SECURE));
    EXPECT_EQ(1U, server.ConnectionCount());
}

TEST_F(PosixTls, NeverRedirectsToPlainHttp)
{
    Trust(loopback);
    RawServer plain(AnswerEach([](const std::string&) { return HttpReply(200, "plain"); }));
    const auto location = "Location: http://127.0.0.1:" + std::to_string(plain.Port()) + "/\r\n";
    RawServer server(AnswerAll(loopback, HttpReply(302, "", location)));
    EXPECT_EQ("12156", Get(server));
    EXPECT_EQ(0U, plain.ConnectionCount());

    // The other way is open.
    RawServer secure(AnswerAll(loopback, HttpReply(200, "secret")));
    RawServer sender(AnswerEach(
        [&](const std::string&) { return HttpReply(301, "", "Location: https://127.0.0.1:" + std::to_string(secure.Port()) + "/\r\n"); }));
    EXPECT_EQ("200 secret", HttpClient(sender.Port()).Get());
}

TEST_F(PosixTls, TakesACutReplyForBroken)
{
    Trust(loopback);
    RawServer server([&](RawConnection& connection) {
        TlsConnection tls(connection, loopback);
        tls.ReadHead();
        tls.Send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nonly so much");
    });
    EXPECT_EQ("12030 only so much", Get(server));
}

TEST_F(PosixTls, SurvivesAResetWhileWriting)
{
    Trust(loopback);
    RawServer server([&](RawConnection& connection) {
        TlsConnection(connection, loopback).ReadHead();
        connection.Reset();
    });
    ASSERT_EQ(SIG_DFL, std::signal(SIGPIPE, SIG_DFL));
    const HttpClient client(server.Port());
    const std::string body(100'000'000, 'x');
    for (int round = 0; round < 5; ++round)
    {
        const auto request = client.Open(L"POST", L"/", WINHTTP_FLAG_SECURE);
        ASSERT_EQ(ERROR_SUCCESS, SendWhole(request.get(), {}, L"Content-Length: 100000000"));
        EXPECT_EQ(ERROR_WINHTTP_CONNECTION_ERROR, WriteBody(request.get(), body));
    }
}
} // namespace
