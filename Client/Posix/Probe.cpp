#include "Probe.h"

#include "ServerAddress.h"
#include "System.h"

#include <curl/curl.h>

#include <algorithm>
#include <array>
#include <ctime>
#include <memory>
#include <netdb.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <optional>
#include <sys/socket.h>
#include <sys/utsname.h>

namespace Probe
{
namespace
{

template <auto Function> struct Deleter
{
    template <typename Type> void operator()(Type* object) const { Function(object); }
};

using Curl = std::unique_ptr<CURL, Deleter<curl_easy_cleanup>>;
using Bio = std::unique_ptr<BIO, Deleter<BIO_free_all>>;
using Names = std::unique_ptr<GENERAL_NAMES, Deleter<GENERAL_NAMES_free>>;

std::string TextOf(const Bio& bio)
{
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    return size > 0 ? std::string(data, static_cast<std::size_t>(size)) : std::string();
}

std::string NameText(const X509_NAME* name)
{
    const Bio bio(BIO_new(BIO_s_mem()));
    X509_NAME_print_ex(bio.get(), name, 0, XN_FLAG_RFC2253 & ~static_cast<unsigned long>(ASN1_STRFLGS_ESC_MSB));
    return TextOf(bio);
}

std::string ServerNames(X509* certificate)
{
    const Names names(static_cast<GENERAL_NAMES*>(X509_get_ext_d2i(certificate, NID_subject_alt_name, nullptr, nullptr)));
    std::string text;
    for (int index = 0; names && index < sk_GENERAL_NAME_num(names.get()); ++index)
    {
        const Bio bio(BIO_new(BIO_s_mem()));
        GENERAL_NAME_print(bio.get(), sk_GENERAL_NAME_value(names.get(), index));
        text += (index > 0 ? ", " : "") + TextOf(bio);
    }
    return text;
}

std::string TimeText(const ASN1_TIME* time)
{
    std::tm parts{};
    std::array<char, 32> text{};
    if (ASN1_TIME_to_tm(time, &parts) != 1 || std::strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%SZ", &parts) == 0)
        return {};
    return text.data();
}

Certificate Describe(X509* certificate)
{
    return {NameText(X509_get_subject_name(certificate)), NameText(X509_get_issuer_name(certificate)), ServerNames(certificate),
            TimeText(X509_get0_notBefore(certificate)),   TimeText(X509_get0_notAfter(certificate)),   {}};
}

Trouble TroubleOf(int error)
{
    switch (error)
    {
    case X509_V_ERR_CERT_NOT_YET_VALID:
    case X509_V_ERR_CERT_HAS_EXPIRED:
        return Trouble::NotInTime;
    case X509_V_ERR_CERT_REVOKED:
        return Trouble::Revoked;
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_CERT_UNTRUSTED:
        return Trouble::Untrusted;
    default:
        return Trouble::Other;
    }
}

bool IsFor(X509* certificate, const std::string& host)
{
    const std::string name = WithoutBrackets(host);
    return X509_check_host(certificate, name.c_str(), name.size(), 0, nullptr) == 1 || X509_check_ip_asc(certificate, name.c_str(), 0) == 1;
}

// One request, its callbacks' object.
class Request
{
public:
    Request(const ServerAddress& server, std::string_view path) : m_host(server.host), m_curl(curl_easy_init())
    {
        const std::string url = server.Url() + ":" + std::to_string(server.port) + std::string(path);
        Set(CURLOPT_URL, url.c_str());
        Set(CURLOPT_NOSIGNAL, 1L);
        Set(CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
        Set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(kConnectMilliseconds));
        Set(CURLOPT_TIMEOUT_MS, static_cast<long>(kReplyMilliseconds));
        Set(CURLOPT_ERRORBUFFER, m_error.data());
        Set(CURLOPT_HEADERFUNCTION, &Request::OnHeader);
        Set(CURLOPT_HEADERDATA, static_cast<void*>(this));
        Set(CURLOPT_WRITEFUNCTION, &Request::OnBody);
        Set(CURLOPT_WRITEDATA, static_cast<void*>(this));
        // The name is checked with the rest of the certificate.
        Set(CURLOPT_SSL_VERIFYHOST, 0L);
        Set(CURLOPT_SSL_CTX_FUNCTION, &Request::OnTlsContext);
        Set(CURLOPT_SSL_CTX_DATA, static_cast<void*>(this));
        SetFromEnvironment(CURLOPT_CAINFO, "SSL_CERT_FILE");
        SetFromEnvironment(CURLOPT_CAPATH, "SSL_CERT_DIR");
    }

    Reply Perform()
    {
        const CURLcode code = curl_easy_perform(m_curl.get());
        const char* address = nullptr;
        long port = 0;
        curl_easy_getinfo(m_curl.get(), CURLINFO_PRIMARY_IP, &address);
        curl_easy_getinfo(m_curl.get(), CURLINFO_PRIMARY_PORT, &port);
        m_reply.isConnected = address != nullptr && *address != '\0' && code != CURLE_COULDNT_CONNECT;
        if (m_reply.isConnected)
            m_reply.peer = std::string(address) + " port " + std::to_string(port);
        // A reply whose body was cut off at the limit is no failure.
        if (code != CURLE_OK && !(code == CURLE_WRITE_ERROR && m_reply.body.size() >= kLongestBody))
            m_reply.failure = m_error.front() != '\0' ? m_error.data() : curl_easy_strerror(code);
        return std::move(m_reply);
    }

private:
    template <typename Value> void Set(CURLoption option, Value value) { curl_easy_setopt(m_curl.get(), option, value); }

    void SetFromEnvironment(CURLoption option, const char* name)
    {
        if (const auto value = System::Environment(name); value && !value->empty())
            Set(option, value->c_str());
    }

    static CURLcode OnTlsContext(CURL* /*curl*/, void* context, void* self)
    {
        SSL_CTX_set_cert_verify_callback(static_cast<SSL_CTX*>(context), &Request::OnCertificate, self);
        return CURLE_OK;
    }

    // Replaces OpenSSL's own check, which stops at the first problem.
    static int OnCertificate(X509_STORE_CTX* store, void* self)
    {
        auto& request = *static_cast<Request*>(self);
        request.m_problems.clear();
        X509_STORE_CTX_set_app_data(store, self);
        X509_STORE_CTX_set_verify_cb(store, &Request::OnVerdict);
        X509_verify_cert(store);
        request.NoteChain(store);
        X509_STORE_CTX_set_error(store, X509_V_OK);
        return 1;
    }

    static int OnVerdict(int isGood, X509_STORE_CTX* store)
    {
        if (isGood == 0)
        {
            const int error = X509_STORE_CTX_get_error(store);
            auto& request = *static_cast<Request*>(X509_STORE_CTX_get_app_data(store));
            request.m_problems.push_back({X509_STORE_CTX_get_error_depth(store), {TroubleOf(error), X509_verify_cert_error_string(error)}});
        }
        return 1;
    }

    void NoteChain(X509_STORE_CTX* store)
    {
        m_reply.chain.clear();
        const STACK_OF(X509)* chain = X509_STORE_CTX_get0_chain(store);
        for (int index = 0; index < sk_X509_num(chain); ++index)
            m_reply.chain.push_back(Describe(sk_X509_value(chain, index)));
        for (auto& [depth, problem] : m_problems)
            if (static_cast<std::size_t>(depth) < m_reply.chain.size())
                m_reply.chain[static_cast<std::size_t>(depth)].problems.push_back(std::move(problem));
        if (!m_reply.chain.empty() && !IsFor(sk_X509_value(chain, 0), m_host))
            m_reply.chain.front().problems.push_back({Trouble::WrongName, "it is not for " + WithoutBrackets(m_host)});
    }

    static std::size_t OnHeader(char* data, std::size_t /*one*/, std::size_t size, void* self)
    {
        static_cast<Request*>(self)->TakeHeader(std::string_view(data, size));
        return size;
    }

    void TakeHeader(std::string_view line)
    {
        // The TLS details are only available while the connection is in use.
        curl_tlssessioninfo* tls = nullptr;
        curl_easy_getinfo(m_curl.get(), CURLINFO_TLS_SSL_PTR, &tls);
        if (tls != nullptr && tls->backend == CURLSSLBACKEND_OPENSSL && tls->internals != nullptr)
        {
            const auto* ssl = static_cast<const SSL*>(tls->internals);
            m_reply.isSecure = true;
            m_reply.protocol = SSL_get_version(ssl);
            m_reply.cipher = SSL_get_cipher_name(ssl);
        }
        long status = 0;
        curl_easy_getinfo(m_curl.get(), CURLINFO_RESPONSE_CODE, &status);
        m_reply.status = static_cast<int>(status);
        TakeValue(line, "date:", m_reply.date);
        TakeValue(line, "location:", m_reply.location);
    }

    static void TakeValue(std::string_view line, std::string_view name, std::string& value)
    {
        if (line.size() <= name.size() || curl_strnequal(line.data(), name.data(), name.size()) == 0)
            return;
        line.remove_prefix(name.size());
        line.remove_prefix(std::min(line.size(), line.find_first_not_of(' ')));
        value = line.substr(0, line.find_last_not_of("\r\n ") + 1);
    }

    static std::size_t OnBody(const char* data, std::size_t /*one*/, std::size_t size, void* self)
    {
        std::string& body = static_cast<Request*>(self)->m_reply.body;
        const std::size_t taken = std::min(size, kLongestBody - body.size());
        body.append(data, taken);
        return taken;
    }

    std::string m_host;
    Reply m_reply;
    std::vector<std::pair<int, Problem>> m_problems; // by the certificate's place in the chain
    std::array<char, CURL_ERROR_SIZE> m_error{};
    Curl m_curl;
};

// Whether a host matches the list of exceptions: each entry is a name, which includes its subdomains, or `*`.
bool IsExempt(std::string_view list, const std::string& host)
{
    while (!list.empty())
    {
        const std::size_t end = std::min(list.size(), list.find_first_of(", "));
        std::string_view name = list.substr(0, end);
        list.remove_prefix(std::min(list.size(), end + 1));
        if (name == "*")
            return true;
        if (name.starts_with('.'))
            name.remove_prefix(1);
        if (!name.empty() && (host == name || host.ends_with("." + std::string(name))))
            return true;
    }
    return false;
}

std::optional<std::string> FirstVariable(std::initializer_list<const char*> names, std::string& name)
{
    for (const char* each : names)
        if (auto value = System::Environment(each); value && !value->empty())
        {
            name = each;
            return value;
        }
    return std::nullopt;
}

} // namespace

std::string Platform()
{
    utsname name = {};
    if (uname(&name) != 0)
        return "unknown";
    return std::string(name.sysname) + " " + name.release + ", " + name.machine;
}

Resolution Resolve(const std::string& host)
{
    Resolution resolution;
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* found = nullptr;
    if (const int error = getaddrinfo(WithoutBrackets(host).c_str(), nullptr, &hints, &found); error != 0)
    {
        resolution.problem = gai_strerror(error);
        return resolution;
    }
    const std::unique_ptr<addrinfo, Deleter<freeaddrinfo>> owner(found);
    for (const addrinfo* each = found; each != nullptr; each = each->ai_next)
    {
        std::array<char, NI_MAXHOST> text{};
        if (getnameinfo(each->ai_addr, each->ai_addrlen, text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) == 0)
            resolution.addresses.emplace_back(text.data());
    }
    return resolution;
}

ProxySetting ProxyFor(const ServerAddress& server)
{
    std::string variable;
    // HTTP_PROXY in capitals is ignored: a CGI program's client could set it.
    const auto proxy = server.secure ? FirstVariable({"https_proxy", "HTTPS_PROXY", "all_proxy", "ALL_PROXY"}, variable)
                                     : FirstVariable({"http_proxy", "all_proxy", "ALL_PROXY"}, variable);
    std::string exemptions;
    const auto exempt = FirstVariable({"no_proxy", "NO_PROXY"}, exemptions);
    if (!proxy)
        return {};
    if (exempt && IsExempt(*exempt, WithoutBrackets(server.host)))
        return {"", exemptions + " exempts the server from " + variable};
    const std::size_t scheme = proxy->find("://");
    const std::size_t start = scheme == std::string::npos ? 0 : scheme + 3;
    const std::size_t at = proxy->find_last_of('@');
    return {proxy->substr(0, start) + proxy->substr(at == std::string::npos ? start : at + 1), variable};
}

Reply Get(const ServerAddress& server, std::string_view path)
{
    return Request(server, path).Perform();
}

} // namespace Probe
