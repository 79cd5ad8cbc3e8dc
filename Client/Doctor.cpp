// Prints the library and its settings, then lets the library shake hands with the server and prints each step when it is done, as the
// library's trace reports it:
//
//     name -> connection -> TLS -> reply -> handshake
//
// A failed step says what to try next.

#include "Client.h"
#include "Commands.h"
#include "FailureText.h"
#include "Failures.h"
#include "JsonText.h"
#include "SessionFile.h"
#include "System.h"
#include "TerminalText.h"
#include "TextConversion.h"

#include "QuendraHttp/QuendraHttp.h"
#include "QuendraHttp/ResultMeanings.h"
#include "QuendraHttp/Settings.h"

#include <algorithm>
#include <utility>

namespace
{

struct Advice
{
    ResultCode code;
    bool isAboutTls; // the connection was made
    const char* next;
};

constexpr const char* kServerDown = "check that the server runs, its port (--port), and firewalls and proxies on the way";
constexpr const char* kOtherServer = "is there another kind of server at this port? Does it want https://?";
constexpr const char* kNewCertificate = "the server needs a new certificate";
constexpr const char* kTrace = "'--trace -' shows each request and its reply";

constexpr Advice kAdvice[] = {
    {ERROR_WINHTTP_TIMEOUT, false, kServerDown},
    {ERROR_WINHTTP_NAME_NOT_RESOLVED, false, "check the spelling of --server, the network and its name servers"},
    {ERROR_WINHTTP_CANNOT_CONNECT, false, kServerDown},
    {ERROR_WINHTTP_CONNECTION_ERROR, false, kOtherServer},
    {ERROR_WINHTTP_SECURE_CERT_DATE_INVALID, true, "check this machine's clock; where it is right, the server needs a new certificate"},
    {ERROR_WINHTTP_SECURE_CERT_CN_INVALID, true, "name the server in --server as its certificate does"},
    {ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED, true, "the server asks for a certificate of the client; the library gives none"},
    {ERROR_WINHTTP_SECURE_INVALID_CA, true,
     "have this machine trust the authority that issued it, where you trust it, or have the server send the whole chain"},
    {ERROR_WINHTTP_SECURE_CERT_REV_FAILED, true, "check that this machine reaches the authority that issued the certificate"},
    {ERROR_WINHTTP_INVALID_SERVER_RESPONSE, false, kOtherServer},
    {ERROR_WINHTTP_SECURE_CHANNEL_ERROR, true,
     "does the port speak the TLS of https, which a bare host means too? Check --port, the server and its certificate"},
    {ERROR_WINHTTP_SECURE_INVALID_CERT, true, kNewCertificate},
    {ERROR_WINHTTP_SECURE_CERT_REVOKED, true, kNewCertificate},
    {ERROR_WINHTTP_SECURE_FAILURE, true, "check --port, the server and its certificate"},
    {ERROR_WINHTTP_SECURE_CERT_WRONG_USAGE, true, kNewCertificate},
};

Advice AdviceOn(ResultCode code)
{
    const auto* found = std::ranges::find(kAdvice, code, &Advice::code);
    return found != std::ranges::end(kAdvice) ? *found : Advice{code, false, kTrace};
}

std::string CodeWithMeaning(ResultCode code)
{
    return CodeText(code) + " (" + Result::MeaningOf(code) + ")";
}

struct Step
{
    const char* name;
    std::vector<std::string> lines{}; // printable
    std::string next{};               // what to try if the step failed; empty for a good step
};

class Diagnosis
{
public:
    explicit Diagnosis(Client& client) : m_client(client) {}

    // Whether every step is good.
    bool Run()
    {
        AddFacts();
        AddSettings();
        if (m_client.IsConnected())
            ShakeHands();
        else
            Report(
                {"Server", {"none is named"}, "name one: quendra doctor --server URL; or log in first: quendra --server URL login USER"});
        m_document["ok"] = !m_hasFailed;
        if (m_client.PrintsJson())
            m_client.Print(m_document, {});
        return !m_hasFailed;
    }

private:
    [[nodiscard]] const ServerAddress& Server() const { return m_client.Server(); }

    void Show(const std::string& text) const
    {
        if (!m_client.PrintsJson())
            m_client.Print({}, text);
    }

    void AddFact(const std::string& name, const std::string& label, const std::string& value)
    {
        m_document[name] = value;
        std::string line = label;
        line.resize(10, ' ');
        Show(line + Printable(std::string_view(value)) + "\n");
    }

    void AddFacts()
    {
        AddFact("version", "Version", QUENDRA_VERSION);
        AddFact("library", "Library", System::FileOf(reinterpret_cast<const void*>(&CreateInstance)));
        AddFact("platform", "Platform", System::Platform());
        if (m_client.IsConnected())
            AddFact("server", "Server", Server().Text());
        AddFact("proxy", "Proxy", System::ProxySettings());
        // User and token are private.
        const auto file = SessionFilePath();
        const auto session = LoadSession(file);
        const char* found = !session                      ? "none is saved in "
                            : session->server == Server() ? "one for this server is saved in "
                                                          : "one for another server is saved in ";
        AddFact("session", "Session", found + ToNarrow(System::ToText(file)));
    }

    void AddSettings()
    {
        Table table({{"Setting"}, {"Value", Table::Align::Right}, {"From"}, {"For"}});
        for (const Tuning::Value* setting : Tuning::kAll)
        {
            const auto found = Settings::FindNumber(setting->name);
            const std::int32_t value = found ? found->value : setting->defaultValue;
            const char* source = !found ? "default" : found->place.root == HKEY_LOCAL_MACHINE ? "machine" : "user";
            Json::Value entry;
            entry["name"] = ToNarrow(setting->name);
            entry["value"] = value;
            entry["unit"] = setting->unit;
            entry["default"] = setting->defaultValue;
            entry["source"] = source;
            entry["subject"] = setting->subject;
            if (found)
                entry["place"] = ToNarrow(found->place.Text());
            m_document["settings"].append(entry);
            const std::string unit = *setting->unit != '\0' ? std::string(" ") + setting->unit : std::string();
            table.Add({ToNarrow(setting->name), std::to_string(value) + unit, source, setting->subject});
        }
        Show("\n" + table.Render() + "\n");
    }

    // Shows a step that is done.
    void Report(const Step& step)
    {
        constexpr const char* kIndent = "                    ";
        const bool isGood = step.next.empty();
        m_hasFailed = m_hasFailed || !isGood;
        Json::Value entry;
        entry["name"] = step.name;
        entry["ok"] = isGood;
        std::string text = step.name;
        text.resize(12, ' ');
        text.insert(0, isGood ? "ok      " : "FAILED  ");
        for (const auto& line : step.lines)
        {
            entry["lines"].append(line);
            text += (&line != step.lines.data() ? kIndent : "") + line + "\n";
        }
        if (!isGood)
        {
            entry["next"] = step.next;
            text += std::string(kIndent) + "-> " + step.next + "\n";
        }
        m_document["checks"].append(entry);
        Show(text);
    }

    void ShakeHands()
    {
        // The simplest call that shows that the library works.
        Check("ReservedNoOp", m_client.Api().ReservedNoOp());
        std::uint32_t serverMode = 0;
        std::uint32_t handshakeValue = 0;
        m_client.Answers().Watch([this](std::string_view message) { TakeMessage(message); });
        const ResultCode code = m_client.Api().Init(serverMode, handshakeValue);
        m_client.Answers().Watch({});
        ReportReply();
        if (code != Result::Success)
            return ReportFailedHandshake(code);
        m_document["serverMode"] = serverMode;
        m_document["handshakeValue"] = handshakeValue;
        m_document["apiAtLeast13"] = m_client.Api().IsApiVersionAtLeast13();
        Report({"Handshake", {"mode " + ModeText(serverMode) + ", API version " + m_version}});
    }

    // Messages of the library's transport and handshake.
    void TakeMessage(std::string_view message)
    {
        if (const auto name = TextAfter("Resolving the name ", message))
            m_name = Printable(*name);
        else if (const auto resolved = TextAfter("Resolved the name: ", message))
            ReportName(Printable(*resolved));
        else if (const auto address = TextAfter("Connecting to ", message))
            m_address = Printable(*address);
        else if (message.starts_with("Connected to "))
            ReportConnection();
        else if (message == "Sending the request")
            ReportTls();
        else if (const auto reason = TextAfter("The secure connection failed, error code: ", message))
            m_reasons.push_back(LeadingNumber(*reason));
        else if (const auto unsent = TextAfter("WinHttpSendRequest failed, error code: ", message))
            ReportFailedRequest(LeadingNumber(*unsent));
        else if (const auto unanswered = TextAfter("WinHttpReceiveResponse failed, error code: ", message))
            ReportFailedRequest(LeadingNumber(*unanswered));
        else if (const auto path = TextAfter("Request Path: ", message))
            m_path = Printable(*path);
        else if (message.starts_with("The server answered with HTTP "))
            m_isReplyShown = false;
        else if (const auto endpoint = TextAfter("Found endpoint ", message))
            TakeEndpoint(*endpoint);
    }

    void ReportName(const std::string& address)
    {
        if (!std::exchange(m_isResolved, true))
            Report({"Name", {m_name == address ? m_name : m_name + " is " + address}});
    }

    void ReportConnection()
    {
        if (!std::exchange(m_isConnected, true))
            Report({"Connection", {"connected to " + m_address}});
    }

    void ReportTls()
    {
        if (Server().secure && !std::exchange(m_isSecure, true))
            Report({"TLS", {"the server's certificate is accepted"}});
    }

    void ReportFailedRequest(ResultCode code)
    {
        if (AdviceOn(code).isAboutTls)
        {
            ReportConnection();
            if (m_reasons.empty())
                m_reasons.push_back(code);
            Step step{"TLS", {}, AdviceOn(m_reasons.front()).next};
            for (const ResultCode reason : m_reasons)
                step.lines.push_back(CodeWithMeaning(reason));
            return Report(step);
        }
        const std::string text = CodeWithMeaning(code);
        const char* const next = AdviceOn(code).next;
        if (!m_isResolved)
            Report({"Name", {m_name + ": " + text}, next});
        else if (!m_isConnected)
            Report({"Connection", {m_address + ": " + text}, next});
        else
            Report({"Reply", {m_path + ": " + text}, next});
    }

    // The reply to the first request, as the library has understood it.
    void TakeEndpoint(std::string_view endpoint)
    {
        constexpr std::string_view kPath = "path=";
        ReportReply();
        const std::size_t path = endpoint.find(kPath) + kPath.size();
        m_version =
            Printable(endpoint.substr(0, endpoint.find(' '))) + " at " + Printable(endpoint.substr(path, endpoint.rfind(',') - path));
    }

    void ReportReply()
    {
        if (std::exchange(m_isReplyShown, true))
            return;
        const ServerAnswer answer = m_client.Answer();
        const std::string status = m_path + ": " + StatusText(answer.status);
        if (answer.status == 511)
            Report({"Reply", {status}, "log in to the network: open any http:// page in a browser"});
        else if (!answer.redirect.empty())
            Report({"Reply",
                    {status + ": a redirect to " + answer.redirect},
                    "redirects are not followed: name the address in --server, or log in to the network's portal first"});
        else if (answer.status >= 500)
            Report({"Reply", {status}, "the server, or a gateway before it, is out of order: try again later, then ask who runs it"});
        else if (answer.status == 401 || answer.status == 403 || answer.status == 407)
            Report({"Reply", {status}, "something on the way wants a login of its own: a proxy, a gateway or the network's portal"});
        else if (answer.status != 200)
            Report({"Reply", {status}, "is this the right server? " + std::string(kTrace)});
        else if (answer.reply.empty())
            Report({"Reply",
                    {status + " without JSON: a web page of a portal or a proxy, or another kind of server"},
                    "open " + Server().Text() + " in a browser to see whose page it is"});
        else
            Report({"Reply", {status}});
    }

    void ReportFailedHandshake(ResultCode code)
    {
        Step step{"Handshake", {CodeWithMeaning(code)}, kTrace};
        if (m_hasFailed)
            step.next = "fix what failed above; '--trace -' shows each request";
        else if (code == Result::IncompatibleServer)
        {
            const auto offers = Offers(m_client.Answer().reply);
            step.lines.insert(step.lines.end(), offers.begin(), offers.end());
            step.next = offers.empty() ? "is this the right server? Its /endpoints lists no versions"
                                       : "the server offers none of the versions that this library speaks: one of the two needs an update";
        }
        Report(step);
    }

    // The versions that the server offers.
    static std::vector<std::string> Offers(const std::string& reply)
    {
        const Json::Value root = ParseJsonObject(reply).value_or(Json::Value());
        std::vector<std::string> lines;
        for (const auto& api : root.getMemberNames())
            if (root[api].isObject())
                for (const auto& version : root[api].getMemberNames())
                    lines.push_back("offers " + Printable(std::string_view(api)) + " " + Printable(std::string_view(version)));
        return lines;
    }

    Client& m_client;
    Json::Value m_document;
    bool m_hasFailed = false;

    // What the messages of the trace have said so far.
    std::string m_name;
    std::string m_address;
    std::string m_path;
    std::string m_version;
    std::vector<ResultCode> m_reasons; // for which TLS failed
    bool m_isResolved = false;
    bool m_isConnected = false;
    bool m_isSecure = false;
    bool m_isReplyShown = true;
};

} // namespace

namespace Command
{

void Execute(Client& client, const Doctor& /*command*/)
{
    if (!Diagnosis(client).Run())
        throw ChecksFailed();
}

} // namespace Command
