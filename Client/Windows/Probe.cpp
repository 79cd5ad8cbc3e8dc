// clang-format off: sockets come before windows.h, for which the platform's header stands
#include <winsock2.h>
#include <ws2tcpip.h>
// clang-format on

#include "Probe.h"
#include "ServerAddress.h"
#include "TextConversion.h"

#include "Platform/Platform.h"
#include "QuendraHttp/ResultMeanings.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <system_error>
#include <wincrypt.h>
// These headers need the types of <wincrypt.h>.
#include <schannel.h>

// Missing in some versions of the SDK.
#if !defined(WINHTTP_OPTION_SECURITY_INFO)
#define WINHTTP_OPTION_SECURITY_INFO 151
#endif

namespace Probe
{
namespace
{

template <auto Function> struct Deleter
{
    template <typename Type> void operator()(Type* object) const { Function(object); }
};

struct WinHttpCloser
{
    void operator()(void* handle) const { WinHttpCloseHandle(handle); }
};
using Handle = std::unique_ptr<void, WinHttpCloser>;

struct GlobalMemory
{
    void operator()(wchar_t* text) const { GlobalFree(text); }
};
using GlobalText = std::unique_ptr<wchar_t, GlobalMemory>;

struct CertificateFreer
{
    void operator()(const CERT_CONTEXT* certificate) const { CertFreeCertificateContext(certificate); }
};
using CertificateOwner = std::unique_ptr<const CERT_CONTEXT, CertificateFreer>;

struct ChainFreer
{
    void operator()(const CERT_CHAIN_CONTEXT* chain) const { CertFreeCertificateChain(chain); }
};
using ChainOwner = std::unique_ptr<const CERT_CHAIN_CONTEXT, ChainFreer>;

std::string ErrorText(DWORD error)
{
    const std::string number = std::to_string(error);
    // The transport's error texts are not among the system's messages.
    if (error >= WINHTTP_ERROR_BASE && error <= WINHTTP_ERROR_LAST)
        return Result::MeaningOf(error) + " (" + number + ")";
    return std::system_category().message(static_cast<int>(error)) + " (" + number + ")";
}

std::string NameText(const CERT_NAME_BLOB& name)
{
    auto* blob = const_cast<CERT_NAME_BLOB*>(&name); // it is only read
    const DWORD size = CertNameToStrW(X509_ASN_ENCODING, blob, CERT_X500_NAME_STR | CERT_NAME_STR_REVERSE_FLAG, nullptr, 0);
    std::wstring text(size, L'\0');
    text.resize(CertNameToStrW(X509_ASN_ENCODING, blob, CERT_X500_NAME_STR | CERT_NAME_STR_REVERSE_FLAG, text.data(), size));
    while (!text.empty() && text.back() == L'\0')
        text.pop_back();
    return ToNarrow(text);
}

std::string AddressText(const CRYPT_DATA_BLOB& address)
{
    std::array<char, INET6_ADDRSTRLEN> text{};
    const int family = address.cbData == 4 ? AF_INET : AF_INET6;
    if (address.cbData != 4 && address.cbData != 16)
        return {};
    return inet_ntop(family, address.pbData, text.data(), text.size()) != nullptr ? text.data() : "";
}

std::string ServerNames(const CERT_INFO& certificate)
{
    const CERT_EXTENSION* extension = CertFindExtension(szOID_SUBJECT_ALT_NAME2, certificate.cExtension, certificate.rgExtension);
    if (extension == nullptr)
        return {};
    CERT_ALT_NAME_INFO* names = nullptr;
    DWORD size = 0;
    if (!CryptDecodeObjectEx(X509_ASN_ENCODING, X509_ALTERNATE_NAME, extension->Value.pbData, extension->Value.cbData,
                             CRYPT_DECODE_ALLOC_FLAG, nullptr, static_cast<void*>(&names), &size))
        return {};
    const std::unique_ptr<void, Deleter<LocalFree>> owner(names);
    std::string text;
    for (DWORD index = 0; index < names->cAltEntry; ++index)
    {
        const CERT_ALT_NAME_ENTRY& name = names->rgAltEntry[index];
        if (name.dwAltNameChoice == CERT_ALT_NAME_DNS_NAME)
            text += (text.empty() ? "DNS:" : ", DNS:") + ToNarrow(name.pwszDNSName);
        else if (name.dwAltNameChoice == CERT_ALT_NAME_IP_ADDRESS)
            text += (text.empty() ? "IP Address:" : ", IP Address:") + AddressText(name.IPAddress);
    }
    return text;
}

std::string TimeText(const FILETIME& time)
{
    SYSTEMTIME parts = {};
    if (!FileTimeToSystemTime(&time, &parts))
        return {};
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02dT%02d:%02d:%02dZ", parts.wYear, parts.wMonth, parts.wDay, parts.wHour,
                  parts.wMinute, parts.wSecond);
    return text.data();
}

std::vector<Problem> ProblemsOf(DWORD status)
{
    struct Bit
    {
        DWORD mask;
        Trouble trouble;
        const char* text;
    };
    constexpr Bit kBits[] = {
        {CERT_TRUST_IS_NOT_TIME_VALID, Trouble::NotInTime, "it has expired or is not valid yet"},
        {CERT_TRUST_IS_REVOKED, Trouble::Revoked, "it was withdrawn"},
        {CERT_TRUST_IS_NOT_SIGNATURE_VALID, Trouble::Other, "its signature is wrong"},
        {CERT_TRUST_IS_NOT_VALID_FOR_USAGE, Trouble::Other, "it is not for servers"},
        {CERT_TRUST_IS_UNTRUSTED_ROOT, Trouble::Untrusted, "its authority is not trusted here"},
        {CERT_TRUST_IS_CYCLIC, Trouble::Other, "the chain goes round in circles"},
        {CERT_TRUST_INVALID_BASIC_CONSTRAINTS, Trouble::Other, "it may not sign others"},
        {CERT_TRUST_INVALID_NAME_CONSTRAINTS, Trouble::Other, "its authority may not sign for this name"},
        {CERT_TRUST_IS_PARTIAL_CHAIN, Trouble::Untrusted, "its issuer's certificate is missing"},
    };
    std::vector<Problem> problems;
    for (const Bit& bit : kBits)
        if ((status & bit.mask) != 0)
            problems.push_back({bit.trouble, bit.text});
    return problems;
}

Certificate Describe(const CERT_CONTEXT& certificate, DWORD status)
{
    const CERT_INFO& info = *certificate.pCertInfo;
    return {NameText(info.Subject),   NameText(info.Issuer),   ServerNames(info),
            TimeText(info.NotBefore), TimeText(info.NotAfter), ProblemsOf(status)};
}

bool IsFor(const CERT_CHAIN_CONTEXT& chain, const std::string& host)
{
    std::wstring name = ToWide(WithoutBrackets(host));
    HTTPSPolicyCallbackData server = {};
    server.cbStruct = sizeof server;
    server.dwAuthType = AUTHTYPE_SERVER;
    server.pwszServerName = name.data();
    CERT_CHAIN_POLICY_PARA policy = {};
    policy.cbSize = sizeof policy;
    // Only the name is checked here; the chain's certificates report all other problems.
    policy.dwFlags = CERT_CHAIN_POLICY_ALLOW_UNKNOWN_CA_FLAG | CERT_CHAIN_POLICY_IGNORE_ALL_NOT_TIME_VALID_FLAGS |
                     CERT_CHAIN_POLICY_IGNORE_ALL_REV_UNKNOWN_FLAGS | CERT_CHAIN_POLICY_IGNORE_WRONG_USAGE_FLAG;
    policy.pvExtraPolicyPara = &server;
    CERT_CHAIN_POLICY_STATUS status = {};
    status.cbSize = sizeof status;
    if (!CertVerifyCertificateChainPolicy(CERT_CHAIN_POLICY_SSL, &chain, &policy, &status) ||
        status.dwError != static_cast<DWORD>(CERT_E_CN_NO_MATCH))
        return true;
    // Some versions of Windows do not compare addresses.
    const std::string names = ServerNames(*chain.rgpChain[0]->rgpElement[0]->pCertContext->pCertInfo) + ",";
    return names.find("IP Address:" + WithoutBrackets(host) + ",") != std::string::npos;
}

std::vector<Certificate> ChainOf(const CERT_CONTEXT& certificate, const std::string& host)
{
    CERT_CHAIN_PARA parameters = {};
    parameters.cbSize = sizeof parameters;
    const CERT_CHAIN_CONTEXT* found = nullptr;
    // The certificate's store contains the other certificates that the server sent.
    if (!CertGetCertificateChain(nullptr, &certificate, nullptr, certificate.hCertStore, &parameters, 0, nullptr, &found))
        return {Describe(certificate, 0)};
    const ChainOwner owner(found);
    std::vector<Certificate> chain;
    for (DWORD index = 0; found->cChain > 0 && index < found->rgpChain[0]->cElement; ++index)
    {
        const CERT_CHAIN_ELEMENT& element = *found->rgpChain[0]->rgpElement[index];
        chain.push_back(Describe(*element.pCertContext, element.TrustStatus.dwErrorStatus));
    }
    // A problem of the whole chain is reported for its last certificate.
    if (!chain.empty() && chain.back().problems.empty())
        chain.back().problems = ProblemsOf(found->TrustStatus.dwErrorStatus & (CERT_TRUST_IS_PARTIAL_CHAIN | CERT_TRUST_IS_UNTRUSTED_ROOT));
    if (!chain.empty() && !IsFor(*found, host))
        chain.front().problems.push_back({Trouble::WrongName, "it is not for " + WithoutBrackets(host)});
    return chain;
}

std::string Header(HINTERNET request, DWORD which)
{
    DWORD size = 0;
    WinHttpQueryHeaders(request, which, WINHTTP_HEADER_NAME_BY_INDEX, nullptr, &size, WINHTTP_NO_HEADER_INDEX);
    std::wstring text(size / sizeof(wchar_t), L'\0');
    if (size == 0 || !WinHttpQueryHeaders(request, which, WINHTTP_HEADER_NAME_BY_INDEX, text.data(), &size, WINHTTP_NO_HEADER_INDEX))
        return {};
    text.resize(size / sizeof(wchar_t));
    return ToNarrow(text);
}

std::string PeerOf(HINTERNET request)
{
    WINHTTP_CONNECTION_INFO info = {};
    info.cbSize = sizeof info;
    DWORD size = sizeof info;
    std::array<char, NI_MAXHOST> host{};
    std::array<char, NI_MAXSERV> port{};
    if (!WinHttpQueryOption(request, WINHTTP_OPTION_CONNECTION_INFO, &info, &size) ||
        getnameinfo(reinterpret_cast<const sockaddr*>(&info.RemoteAddress), sizeof info.RemoteAddress, host.data(), host.size(),
                    port.data(), port.size(), NI_NUMERICHOST | NI_NUMERICSERV) != 0)
        return {};
    return std::string(host.data()) + " port " + port.data();
}

// The protocol and the cipher, as far as the system reports them.
void DescribeTls(HINTERNET request, Reply& reply)
{
    struct SecurityInfo // the system's layout
    {
        SecPkgContext_ConnectionInfo connection;
        SecPkgContext_CipherInfo cipher;
    } info = {};
    DWORD size = sizeof info;
    if (!WinHttpQueryOption(request, WINHTTP_OPTION_SECURITY_INFO, &info, &size))
        return;
    struct Protocol
    {
        DWORD mask;
        const char* name;
    };
    constexpr Protocol kProtocols[] = {{0x3000, "TLSv1.3"}, {0x0C00, "TLSv1.2"}, {0x0300, "TLSv1.1"}, {0x00C0, "TLSv1"}, {0x0030, "SSLv3"}};
    for (const Protocol& protocol : kProtocols)
        if ((info.connection.dwProtocol & protocol.mask) != 0)
            reply.protocol = protocol.name;
    reply.cipher = ToNarrow(info.cipher.szCipherSuite);
}

void ReadBody(HINTERNET request, std::string& body)
{
    std::array<char, 8192> block{};
    DWORD count = 0;
    while (body.size() < kLongestBody && WinHttpReadData(request, block.data(), block.size(), &count) && count > 0)
        body.append(block.data(), std::min<std::size_t>(count, kLongestBody - body.size()));
}

// Starts Winsock, and ends it.
class Sockets
{
public:
    Sockets()
    {
        WSADATA data;
        m_isStarted = WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }
    ~Sockets()
    {
        if (m_isStarted)
            WSACleanup();
    }

    Sockets(const Sockets&) = delete;
    Sockets& operator=(const Sockets&) = delete;

private:
    bool m_isStarted;
};

// Fills in the reply until a step fails.
void Ask(const ServerAddress& server, std::string_view path, Reply& reply)
{
    const auto failed = [&reply] { reply.failure = ErrorText(GetLastError()); };
    const Handle session(WinHttpOpen(nullptr, WINHTTP_ACCESS_TYPE_DEFAULT_PROXY, WINHTTP_NO_PROXY_NAME, WINHTTP_NO_PROXY_BYPASS, 0));
    if (!session)
        return failed();
    DWORD never = WINHTTP_OPTION_REDIRECT_POLICY_NEVER; // redirects are reported, not followed
    WinHttpSetOption(session.get(), WINHTTP_OPTION_REDIRECT_POLICY, &never, sizeof never);
    WinHttpSetTimeouts(session.get(), kConnectMilliseconds, kConnectMilliseconds, kReplyMilliseconds, kReplyMilliseconds);
    const Handle connection(
        WinHttpConnect(session.get(), ToWide(WithoutBrackets(server.host)).c_str(), static_cast<INTERNET_PORT>(server.port), 0));
    if (!connection)
        return failed();
    const Handle request(WinHttpOpenRequest(connection.get(), L"GET", ToWide(path).c_str(), nullptr, WINHTTP_NO_REFERER,
                                            WINHTTP_DEFAULT_ACCEPT_TYPES, server.secure ? WINHTTP_FLAG_SECURE : 0));
    if (!request)
        return failed();
    DWORD ignored = SECURITY_FLAG_IGNORE_UNKNOWN_CA | SECURITY_FLAG_IGNORE_CERT_DATE_INVALID | SECURITY_FLAG_IGNORE_CERT_CN_INVALID |
                    SECURITY_FLAG_IGNORE_CERT_WRONG_USAGE;
    // No other request may reuse this connection, whose server is not verified.
    DWORD disabled = WINHTTP_DISABLE_KEEP_ALIVE;
    WinHttpSetOption(request.get(), WINHTTP_OPTION_DISABLE_FEATURE, &disabled, sizeof disabled);
    if (server.secure)
        WinHttpSetOption(request.get(), WINHTTP_OPTION_SECURITY_FLAGS, &ignored, sizeof ignored);
    if (!WinHttpSendRequest(request.get(), WINHTTP_NO_ADDITIONAL_HEADERS, 0, WINHTTP_NO_REQUEST_DATA, 0, 0, 0))
    {
        const DWORD error = GetLastError();
        reply.isConnected = error == ERROR_WINHTTP_SECURE_FAILURE || error == ERROR_WINHTTP_CONNECTION_ERROR;
        reply.failure = ErrorText(error);
        return;
    }
    reply.isConnected = true;
    reply.peer = PeerOf(request.get());
    if (server.secure)
    {
        reply.isSecure = true;
        DescribeTls(request.get(), reply);
        const CERT_CONTEXT* certificate = nullptr;
        DWORD size = sizeof certificate;
        if (WinHttpQueryOption(request.get(), WINHTTP_OPTION_SERVER_CERT_CONTEXT, &certificate, &size))
            reply.chain = ChainOf(*CertificateOwner(certificate), server.host);
    }
    if (!WinHttpReceiveResponse(request.get(), nullptr))
        return failed();
    const std::string status = Header(request.get(), WINHTTP_QUERY_STATUS_CODE);
    reply.status = std::atoi(status.c_str());
    reply.date = Header(request.get(), WINHTTP_QUERY_DATE);
    reply.location = Header(request.get(), WINHTTP_QUERY_LOCATION);
    ReadBody(request.get(), reply.body);
}

} // namespace

std::string Platform()
{
    // GetVersionEx reports the version that the program was built for.
    using GetVersion = LONG(WINAPI*)(OSVERSIONINFOW*);
    using GetWineVersion = const char*(CDECL*)();
    const HMODULE system = GetModuleHandleW(L"ntdll.dll");
    OSVERSIONINFOW version = {};
    version.dwOSVersionInfoSize = sizeof version;
    std::string text = "Windows";
    if (const auto get = reinterpret_cast<GetVersion>(reinterpret_cast<void*>(GetProcAddress(system, "RtlGetVersion")));
        get != nullptr && get(&version) == 0)
        text += " " + std::to_string(version.dwMajorVersion) + "." + std::to_string(version.dwMinorVersion) + "." +
                std::to_string(version.dwBuildNumber);
    text += ", x86_64";
    if (const auto get = reinterpret_cast<GetWineVersion>(reinterpret_cast<void*>(GetProcAddress(system, "wine_get_version"))))
        text += ", Wine " + std::string(get());
    return text;
}

Resolution Resolve(const std::string& host)
{
    const Sockets sockets;
    Resolution resolution;
    ADDRINFOW hints = {};
    hints.ai_socktype = SOCK_STREAM;
    ADDRINFOW* found = nullptr;
    if (const int error = GetAddrInfoW(ToWide(WithoutBrackets(host)).c_str(), nullptr, &hints, &found); error != 0)
    {
        resolution.problem = ErrorText(static_cast<DWORD>(error));
        return resolution;
    }
    const std::unique_ptr<ADDRINFOW, Deleter<FreeAddrInfoW>> owner(found);
    for (const ADDRINFOW* each = found; each != nullptr; each = each->ai_next)
    {
        std::array<char, NI_MAXHOST> text{};
        if (getnameinfo(each->ai_addr, static_cast<socklen_t>(each->ai_addrlen), text.data(), text.size(), nullptr, 0, NI_NUMERICHOST) == 0)
            resolution.addresses.emplace_back(text.data());
    }
    return resolution;
}

ProxySetting ProxyFor(const ServerAddress& /*server*/)
{
    WINHTTP_PROXY_INFO info = {};
    if (!WinHttpGetDefaultProxyConfiguration(&info))
        return {};
    const GlobalText proxy(info.lpszProxy);
    const GlobalText bypass(info.lpszProxyBypass);
    if (!proxy)
        return {};
    std::string source = "the machine's WinHTTP settings";
    if (bypass)
        source += ", not for " + ToNarrow(bypass.get());
    return {ToNarrow(proxy.get()), source};
}

Reply Get(const ServerAddress& server, std::string_view path)
{
    const Sockets sockets;
    Reply reply;
    Ask(server, path, reply);
    return reply;
}

} // namespace Probe
