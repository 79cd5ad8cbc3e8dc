// Requests over TLS: whose certificates are taken, and that a broken connection kills no process.

#include "MemorySearch.h"
#include "Patterns.h"
#include "Posix/HttpSupport.h"
#include "RawServer.h"
#include "TransferSupport.h"

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/wait.h>
#include <unistd.h>

using namespace HttpCalls;

namespace
{
template <auto Free> struct Freeing
{
    template <typename Type> void operator()(Type* object) const { Free(object); }
};
template <typename Type, auto Free> using Owned = std::unique_ptr<Type, Freeing<Free>>;

// OpenSSL takes TLS 1.0 here, as an administrator may have set it for the sake of another program.
const bool g_takesOldVersions = [] {
    const TemporaryFolder folder;
    const auto file = (folder / "openssl.cnf").string();
    std::ofstream(file) << "openssl_conf=a\n[a]\nssl_conf=b\n[b]\nsystem_default=c\n[c]\nMinProtocol=TLSv1\nCipherString=ALL:@SECLEVEL=0\n";
    ::setenv("OPENSSL_CONF", file.c_str(), 1);
    return OPENSSL_init_ssl(OPENSSL_INIT_LOAD_CONFIG, nullptr) == 1;
}();

// A certificate with its key; self-signed unless it has an issuer.
struct Certificate
{
    // @param begin, end  days from now.
    explicit Certificate(const char* subjects, long begin = -2, long end = 1, const Certificate* issuer = nullptr)
        : key(EVP_EC_gen("P-256")), certificate(X509_new())
    {
        X509_set_version(certificate.get(), X509_VERSION_3);
        X509_gmtime_adj(X509_getm_notBefore(certificate.get()), begin * kDay);
        X509_gmtime_adj(X509_getm_notAfter(certificate.get()), end * kDay);
        X509_set_pubkey(certificate.get(), key.get());
        X509_NAME* const name = X509_get_subject_name(certificate.get());
        X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8, reinterpret_cast<const unsigned char*>(subjects), -1, -1, 0);
        X509_set_issuer_name(certificate.get(), issuer == nullptr ? name : X509_get_subject_name(issuer->certificate.get()));
        for (const auto& [kind, value] : {std::pair(NID_subject_alt_name, subjects), {NID_basic_constraints, "CA:TRUE"}})
        {
            const Owned<X509_EXTENSION, X509_EXTENSION_free> extension(X509V3_EXT_conf_nid(nullptr, nullptr, kind, value));
            X509_add_ext(certificate.get(), extension.get(), -1);
        }
        X509_sign(certificate.get(), issuer == nullptr ? key.get() : issuer->key.get(), EVP_sha256());
    }

    static constexpr long kDay = 24 * 60 * 60;
    const Owned<EVP_PKEY, EVP_PKEY_free> key;
    const Owned<X509, X509_free> certificate;
};

// What the server saw: bytes of requests, and connections that go on with the session of an earlier one.
struct Seen
{
    std::atomic<int> bytes = 0;
    std::atomic<int> resumptions = 0;
};

// The server's end of TLS: answers each request of a connection, or, with an end to make of it, the first.
RawServer::Script Answer(const Certificate& own, const std::string& reply, const std::function<void(RawConnection&)>& end = {},
                         int verification = SSL_VERIFY_NONE, Seen* seen = nullptr, int newest = TLS1_3_VERSION, bool endsTls = false)
{
    const std::shared_ptr<SSL_CTX> context(SSL_CTX_new(TLS_server_method()), SSL_CTX_free);
    SSL_CTX_set_max_proto_version(context.get(), newest);
    SSL_CTX_set_verify(context.get(), verification, nullptr);
    return [=, &own](RawConnection& connection) {
        const Owned<SSL, SSL_free> tls(SSL_new(context.get()));
        BIO* const in = BIO_new(BIO_s_mem());
        BIO* const out = BIO_new(BIO_s_mem());
        SSL_set_bio(tls.get(), in, out);
        SSL_use_certificate(tls.get(), own.certificate.get());
        SSL_use_PrivateKey(tls.get(), own.key.get());
        SSL_set_accept_state(tls.get());
        // Carries bytes to and from the connection until TLS is done with a step; one that fails ends with the connection.
        const auto complete = [&](const auto& step) {
            for (bool isDone = false; !isDone;)
            {
                isDone = step() > 0;
                char* bytes = nullptr;
                const long size = BIO_get_mem_data(out, &bytes);
                connection.Send({bytes, static_cast<std::size_t>(size)});
                BIO_reset(out);
                if (!isDone)
                    BIO_write(in, connection.Read(1).data(), 1);
            }
        };
        do
        {
            char last = '\0';
            for (std::string head; !head.ends_with("\r\n\r\n"); head += last)
            {
                complete([&] { return SSL_read(tls.get(), &last, 1); });
                if (seen != nullptr)
                    ++seen->bytes;
            }
            if (seen != nullptr)
                seen->resumptions += SSL_session_reused(tls.get());
            complete([&] { return SSL_write(tls.get(), reply.data(), static_cast<int>(reply.size())); });
        } while (!end);
        if (endsTls)
            complete([&] { return SSL_shutdown(tls.get()) + 1; });
        end(connection);
    };
}

class PosixTls : public testing::Test
{
protected:
    PosixTls() { ::setenv("SSL_CERT_DIR", "/nonexistent", 1); }

    // From now on, in place of any other.
    void Trust(const Certificate& certificate) const
    {
        const auto file = (folder / "trusted.crt").string();
        PEM_write_bio_X509(Owned<BIO, BIO_free>(BIO_new_file(file.c_str(), "w")).get(), certificate.certificate.get());
        ::setenv("SSL_CERT_FILE", file.c_str(), 1);
    }

    static std::string Get(const RawServer& server) { return HttpClient(server.Port()).Get(L"/", WINHTTP_FLAG_SECURE); }

    const TemporaryFolder folder;
    const Certificate loopback{"IP:127.0.0.1,DNS:localhost"};
    const Certificate other{"DNS:other.test"};
    const Certificate expired{"IP:127.0.0.1", -2, -1};
    const Certificate tomorrow{"IP:127.0.0.1", 1, 2};
    const Certificate issued{"IP:127.0.0.1", -2, 1, &other};
};

TEST_F(PosixTls, TakesTrustedCertificatesOfTheRightHostOnly)
{
    const std::string kept = "sending, sent, receiving, received";
    const auto failure = [](DWORD flags) { return "secure failure " + std::to_string(flags); };
    const auto channel = failure(WINHTTP_CALLBACK_STATUS_FLAG_SECURITY_CHANNEL_ERROR);
    ASSERT_TRUE(g_takesOldVersions);
    // The certificate that is served and the one that is trusted, the server's name and newest version of TLS, the outcome and what is told
    // after connecting.
    const std::tuple<const Certificate&, const Certificate&, const wchar_t*, int, const char*, std::string> cases[] = {
        {loopback, loopback, L"127.0.0.1", TLS1_3_VERSION, "200 secret", kept},
        {loopback, loopback, L"localhost", TLS1_2_VERSION, "200 secret", kept},
        {loopback, loopback, L"127.0.0.1", TLS1_1_VERSION, "12175", channel},
        {loopback, loopback, L"127.0.0.1", TLS1_VERSION, "12175", channel},
        {issued, other, L"127.0.0.1", TLS1_3_VERSION, "200 secret", kept},
        {issued, loopback, L"127.0.0.1", TLS1_3_VERSION, "12175", failure(WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA)},
        {loopback, other, L"127.0.0.1", TLS1_3_VERSION, "12175", failure(WINHTTP_CALLBACK_STATUS_FLAG_INVALID_CA)},
        {other, other, L"127.0.0.1", TLS1_3_VERSION, "12175", failure(WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID)},
        {other, other, L"localhost", TLS1_2_VERSION, "12175", failure(WINHTTP_CALLBACK_STATUS_FLAG_CERT_CN_INVALID)},
        {tomorrow, tomorrow, L"127.0.0.1", TLS1_3_VERSION, "12175", failure(WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID)},
        {expired, expired, L"127.0.0.1", TLS1_2_VERSION, "12175", failure(WINHTTP_CALLBACK_STATUS_FLAG_CERT_DATE_INVALID)}};
    for (const auto& [served, trusted, name, newest, outcome, told] : cases)
    {
        Seen seen;
        RawServer server(Answer(served, HttpReply(200, "secret"), {}, SSL_VERIFY_NONE, &seen, newest));
        Trust(trusted);
        const HttpClient client(server.Port(), name);
        EXPECT_EQ(outcome, client.Get(L"/", WINHTTP_FLAG_SECURE));
        StatusRecord record(client.connection.get());
        EXPECT_EQ(outcome, client.Get(L"/", WINHTTP_FLAG_SECURE));
        EXPECT_EQ(*outcome == '2' ? 1U : 2U, server.ConnectionCount()) << "kept where it is good";
        const auto text = ReplaceAll(record.Take(), "(sent|received) \\d+", "$1");
        EXPECT_EQ(told, ReplaceAll(text, "^.*connected 127.0.0.1, ", ""));
        EXPECT_EQ(*outcome != '2', seen.bytes == 0) << "nothing of a request goes to a server that is refused";
    }
    RawServer plain([](RawConnection& connection) { connection.Send("HTTP/1.1 400 What\r\n\r\n"); });
    for (const char* const file : {"", "/nonexistent"})
    {
        if (*file != '\0')
            ::setenv("SSL_CERT_FILE", file, 1);
        const HttpClient client(plain.Port());
        StatusRecord record(client.connection.get());
        EXPECT_EQ("12175", client.Get(L"/", WINHTTP_FLAG_SECURE)) << "no TLS at all, or no certificates to trust";
        EXPECT_TRUE(record.Take().ends_with("connected 127.0.0.1, " + channel));
    }
}

TEST_F(PosixTls, LoadsTheTrustedCertificatesOncePerSession)
{
    RawServer first(Answer(loopback, HttpReply(200, "ok")));
    RawServer second(Answer(loopback, HttpReply(200, "ok")));
    Trust(loopback);
    const HttpClient client(first.Port());
    EXPECT_EQ("200 ok", client.Get(L"/", WINHTTP_FLAG_SECURE));
    Trust(other);
    const HttpHandle connection(WinHttpConnect(client.session.get(), L"127.0.0.1", second.Port(), 0));
    const HttpHandle request(WinHttpOpenRequest(connection.get(), L"GET", L"/", nullptr, nullptr, nullptr, WINHTTP_FLAG_SECURE));
    EXPECT_EQ("200 ok", Exchange(request.get()));
    EXPECT_EQ("12175", Get(second)) << "a session that was opened later";
}

TEST_F(PosixTls, ResumesTheSessionOnNewConnectionsOfAllThreads)
{
    Trust(loopback);
    Seen seen;
    const auto reply = HttpReply(200, "ok", "Connection: close\r\nSet-Cookie: a=b\r\n");
    RawServer server(Answer(
        loopback, reply, [](RawConnection&) {}, SSL_VERIFY_NONE, &seen));
    const HttpClient client(server.Port(), L"localhost");
    EXPECT_EQ("200 ok", client.Get(L"/", WINHTTP_FLAG_SECURE));
    std::vector<std::thread> threads(4);
    for (auto& thread : threads)
        thread = std::thread([&] {
            for (int count = 0; count < 8; ++count)
                EXPECT_EQ("200 ok", client.Get(L"/", WINHTTP_FLAG_SECURE));
        });
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(33U, server.ConnectionCount());
    EXPECT_GE(seen.resumptions, 24) << "one that is just being replaced may be missed";
}

TEST_F(PosixTls, TellsThatTheServerDemandsACertificate)
{
    Trust(loopback);
    for (const int newest : {TLS1_2_VERSION, TLS1_3_VERSION})
        for (const auto& [verification, outcome] :
             {std::pair(SSL_VERIFY_PEER | SSL_VERIFY_FAIL_IF_NO_PEER_CERT, "12044"), {SSL_VERIFY_PEER, "200 ok"}})
        {
            RawServer server(Answer(loopback, HttpReply(200, "ok"), {}, verification, nullptr, newest));
            EXPECT_EQ(outcome, Get(server));
            EXPECT_EQ(outcome, Exchange(HttpClient(server.Port()).Open(L"POST", L"/", WINHTTP_FLAG_SECURE).get(), "body"));
        }
}

TEST_F(PosixTls, LeavesNoSecretInMemory)
{
    constexpr std::string_view kSecret = "terces-gnol-yrev-a-8d3f6a1e9c";
    constexpr std::size_t kBefore = 8000;
    Trust(loopback);
    int toChild[2] = {};
    ASSERT_EQ(0, pipe(toChild));
    std::uint16_t port = 0;
    const pid_t child = fork(); // before there are copies of the server's
    if (child == 0)
    {
        static_cast<void>(read(toChild[0], &port, sizeof port));
        const HttpClient client(port);
        auto body = Spelled<std::string>(kSecret);
        std::vector<char> reply(2 * kBefore);
        auto request = client.Open(L"POST", L"/", WINHTTP_FLAG_SECURE);
        const auto size = static_cast<DWORD>(body.size());
        WinHttpSendRequest(request.get(), nullptr, 0, body.data(), size, size, 0);
        WinHttpReceiveResponse(request.get(), nullptr);
        std::size_t received = 0;
        for (DWORD count = 1; count != 0; received += count)
            WinHttpReadData(request.get(), reply.data() + received, static_cast<DWORD>(reply.size() - received), &count);
        const bool isComplete = received == kBefore + body.size() && CountIn(reply.data(), reply.size(), kSecret, 1) == 1;
        explicit_bzero(body.data(), body.size());
        explicit_bzero(reply.data(), reply.size());
        request.reset(); // its connection is kept
        _exit(isComplete ? CountInMemory(kSecret) : 99);
    }
    RawServer server(Answer(loopback, HttpReply(200, std::string(kBefore, ' ') + Spelled<std::string>(kSecret))));
    port = server.Port();
    ASSERT_EQ(static_cast<ssize_t>(sizeof port), write(toChild[1], &port, sizeof port));
    int status = -1;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    close(toChild[0]), close(toChild[1]);
}

TEST_F(PosixTls, TakesACutReplyForBroken)
{
    Trust(loopback);
    for (const auto& [header, endsTls, outcome] : {std::tuple("200 OK\r\nContent-Length: 100", true, "12030 only so much"),
                                                   {"200 OK", false, "12030 only so much"},
                                                   {"200 OK", true, "200 only so much"},
                                                   {"204 No", false, "204"}})
    {
        const auto reply = std::string("HTTP/1.1 ") + header + "\r\n\r\nonly so much";
        RawServer server(Answer(
            loopback, reply, [](RawConnection&) {}, SSL_VERIFY_NONE, nullptr, TLS1_3_VERSION, endsTls));
        EXPECT_EQ(outcome, Get(server));
    }
}

TEST_F(PosixTls, SurvivesAResetWhileWriting)
{
    Trust(loopback);
    RawServer server(Answer(loopback, "HTTP/1.1 100 Continue\r\n\r\n", [](RawConnection& connection) { connection.Reset(); }));
    ASSERT_EQ(SIG_DFL, std::signal(SIGPIPE, SIG_DFL));
    const HttpClient client(server.Port());
    const std::string body(100'000'000, 'x');
    for (int round = 0; round < 5; ++round)
    {
        const auto request = client.Open(L"POST", L"/", WINHTTP_FLAG_SECURE);
        const DWORD error = SendWhole(request.get(), {}, L"Content-Length: 100000000");
        EXPECT_EQ(ERROR_WINHTTP_CONNECTION_ERROR, error != ERROR_SUCCESS ? error : WriteBody(request.get(), body));
    }
}
} // namespace
