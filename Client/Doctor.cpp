// Prints the library and its settings, then checks the connection to the server, step by step, and prints each step when it is done. A
// failed step says what was tried and what to try next; later steps are still tried where possible.
//
//     proxy -> name -> connection -> TLS -> certificate -> clock -> handshake

#include "Client.h"
#include "Commands.h"
#include "Failures.h"
#include "JsonText.h"
#include "Probe.h"
#include "ResultMeanings.h"
#include "SessionFile.h"
#include "Text.h"
#include "TextConversion.h"
#include "UtcText.h"

#include "QuendraHttp/QuendraHttp.h"
#include "QuendraHttp/ResultMeanings.h"
#include "QuendraHttp/Settings.h"

#include <chrono>
#include <cstdlib>
#include <utility>

namespace
{

constexpr const char* kEndpoints = "/endpoints";
// A larger clock difference invalidates certificates and falsifies the times of items.
constexpr std::int64_t kLargestClockDifference = 300;

struct Step
{
    const char* name;
    bool isGood = true;
    std::vector<std::string> lines{}; // printable, the first one is the summary
    std::string next{};               // what to try if the step failed
    Json::Value details{};

    void Fail(const std::string& line, const std::string& advice)
    {
        isGood = false;
        lines.push_back(line);
        if (next.empty())
            next = advice;
    }
};

class Diagnosis
{
public:
    explicit Diagnosis(const Client& client) : m_client(client) {}

    // Whether every step is good.
    bool Run()
    {
        AskForFacts();
        AskForSettings();
        if (!m_client.IsConnected())
        {
            Step step{"Server"};
            step.Fail("none is named", "name one: quendra doctor --server URL; or log in first: quendra --server URL login USER");
            End(step);
            return Report();
        }
        // The simplest call that shows that the library works.
        Check("ReservedNoOp", m_client.Api().ReservedNoOp());
        const Probe::ProxySetting proxy = CheckProxy();
        CheckName(proxy);
        const auto asked = std::chrono::steady_clock::now();
        const Probe::Reply reply = Probe::Get(Server(), kEndpoints);
        const auto took = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - asked);
        CheckConnection(reply, took);
        if (Server().secure && reply.isConnected)
        {
            CheckTls(reply);
            CheckCertificates(reply);
        }
        if (!reply.date.empty())
            CheckClock(reply.date);
        CheckHandshake(reply);
        return Report();
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

    void AskForFacts()
    {
        const Surroundings& around = m_client.Around();
        AddFact("version", "Version", QUENDRA_VERSION);
        AddFact("library", "Library", around.libraryFile);
        AddFact("platform", "Platform", Probe::Platform());
        if (m_client.IsConnected())
            AddFact("server", "Server", Server().Text());
        // Whether the session is for this server; user and token are private.
        AddFact("session", "Session", SessionText(SessionFilePath(around)));
    }

    [[nodiscard]] std::string SessionText(const std::filesystem::path& file) const
    {
        const auto session = LoadSession(file);
        const std::string name = ToNarrow(System::ToText(file));
        if (!session)
            return "none is saved in " + name;
        return (session->server == Server() ? "one for this server is saved in " : "one for another server is saved in ") + name;
    }

    void AskForSettings()
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
    void End(const Step& step)
    {
        Json::Value entry = step.details;
        entry["name"] = step.name;
        entry["ok"] = step.isGood;
        std::string text = step.name;
        text.resize(12, ' ');
        text.insert(0, step.isGood ? "ok      " : "FAILED  ");
        for (std::size_t index = 0; index < step.lines.size(); ++index)
        {
            text += (index > 0 ? std::string(20, ' ') : "") + step.lines[index] + "\n";
            entry["lines"].append(step.lines[index]);
        }
        if (!step.next.empty())
        {
            entry["next"] = step.next;
            text += std::string(20, ' ') + "-> " + step.next + "\n";
        }
        m_document["checks"].append(entry);
        m_hasFailed = m_hasFailed || !step.isGood;
        Show(text);
    }

    Probe::ProxySetting CheckProxy()
    {
        Step step{"Proxy"};
        Probe::ProxySetting proxy = Probe::ProxyFor(Server());
        step.details["proxy"] = proxy.proxy.empty() ? Json::Value() : Json::Value(proxy.proxy);
        step.lines.push_back(proxy.proxy.empty() ? "none" : Printable(std::string_view(proxy.proxy)));
        if (!proxy.source.empty())
            step.lines.back() += " (" + Printable(std::string_view(proxy.source)) + ")";
        End(step);
        return proxy;
    }

    void CheckName(const Probe::ProxySetting& proxy)
    {
        Step step{"Name"};
        const Probe::Resolution found = Probe::Resolve(Server().host);
        for (const auto& address : found.addresses)
            step.details["addresses"].append(address);
        if (!found.addresses.empty())
        {
            std::string addresses;
            for (const auto& address : found.addresses)
                addresses += (addresses.empty() ? "" : ", ") + address;
            step.lines.push_back(Server().host + " is " + addresses);
        }
        else if (!proxy.proxy.empty())
            step.lines.push_back(Server().host + " is not known here: the proxy has to know it");
        else
            step.Fail("asked the system for the address of " + Server().host + ": " + Printable(std::string_view(found.problem)),
                      "check the spelling of --server, the network and its name servers");
        End(step);
    }

    void CheckConnection(const Probe::Reply& reply, std::chrono::milliseconds took)
    {
        Step step{"Connection"};
        const std::string line = "asked " + Server().Text() + " for " + kEndpoints + ": " + Printable(std::string_view(reply.failure));
        if (reply.isConnected && reply.failure.empty())
        {
            step.details["milliseconds"] = static_cast<Json::Int64>(took.count());
            step.lines.push_back((reply.peer.empty() ? Server().Text() : reply.peer) + " answered with HTTP " +
                                 std::to_string(reply.status) + " in " + std::to_string(took.count()) + " ms");
        }
        else if (!reply.isConnected)
            step.Fail(line, "check that the server runs, its port (--port), and firewalls and proxies on the way");
        else if (Server().secure && !reply.isSecure)
            step.Fail(line, "the port does not speak the TLS of https, which a bare host means too: check --port and the server");
        else
            step.Fail(line, "is there another kind of server at this port? Does it want https://?");
        End(step);
    }

    void CheckTls(const Probe::Reply& reply)
    {
        if (!reply.isSecure)
            return;
        Step step{"TLS"};
        step.details["protocol"] = reply.protocol.empty() ? Json::Value() : Json::Value(reply.protocol);
        step.details["cipher"] = reply.cipher.empty() ? Json::Value() : Json::Value(reply.cipher);
        step.lines.push_back(reply.protocol.empty() ? "the system does not tell the protocol" : reply.protocol + ", " + reply.cipher);
        End(step);
    }

    [[nodiscard]] std::string AdviceOn(Probe::Trouble trouble) const
    {
        switch (trouble)
        {
        case Probe::Trouble::Untrusted:
            return "have this machine trust the authority that issued it, where you trust it, or have the server send the whole chain";
        case Probe::Trouble::NotInTime:
            return "check this machine's clock; where it is right, the server needs a new certificate";
        case Probe::Trouble::WrongName:
            return "name the server in --server as its certificate does";
        case Probe::Trouble::Revoked:
        case Probe::Trouble::Other:
            break;
        }
        return "the server needs a new certificate";
    }

    void CheckCertificates(const Probe::Reply& reply)
    {
        if (reply.chain.empty())
            return;
        Step step{"Certificate"};
        for (const Probe::Certificate& certificate : reply.chain)
        {
            Json::Value entry;
            entry["subject"] = certificate.subject;
            entry["issuer"] = certificate.issuer;
            entry["names"] = certificate.names;
            entry["notBefore"] = certificate.notBefore;
            entry["notAfter"] = certificate.notAfter;
            entry["problems"] = Json::Value(Json::arrayValue);
            const std::string names = certificate.names.empty() ? "" : " for " + Printable(std::string_view(certificate.names));
            step.lines.push_back(Printable(std::string_view(certificate.subject)) + names);
            step.lines.push_back("  issued by " + Printable(std::string_view(certificate.issuer)) + ", valid from " +
                                 certificate.notBefore + " to " + certificate.notAfter);
            for (const Probe::Problem& problem : certificate.problems)
            {
                entry["problems"].append(problem.text);
                step.Fail("  WRONG: " + Printable(std::string_view(problem.text)), AdviceOn(problem.trouble));
            }
            step.details["chain"].append(entry);
        }
        End(step);
    }

    void CheckClock(const std::string& date)
    {
        const auto server = ParseHttpDate(date);
        if (!server)
            return;
        Step step{"Clock"};
        const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
        const std::int64_t ahead = (*server - now).count();
        step.details["serverAheadSeconds"] = static_cast<Json::Int64>(ahead);
        const std::string difference = "the server's clock is " + DurationText(static_cast<std::uint64_t>(std::llabs(ahead))) +
                                       (ahead < 0 ? " behind" : " ahead of") + " this machine's";
        if (std::llabs(ahead) > kLargestClockDifference)
            step.Fail(difference, "set the clock of the machine that is wrong: certificates and the times of items depend on it");
        else
            step.lines.push_back(std::llabs(ahead) <= 1 ? "the same as the server's" : difference);
        End(step);
    }

    void CheckHandshake(const Probe::Reply& reply)
    {
        Step step{"Handshake"};
        std::uint32_t serverMode = 0;
        std::uint32_t handshakeValue = 0;
        const ResultCode code = m_client.Api().Init(serverMode, handshakeValue);
        const auto [offered, endpoints] = EndpointsOf(reply.body);
        step.details["endpoints"] = endpoints;
        if (code == Result::Success)
        {
            step.details["serverMode"] = serverMode;
            step.details["handshakeValue"] = handshakeValue;
            step.details["apiAtLeast13"] = m_client.Api().IsApiVersionAtLeast13();
            step.lines.push_back("mode " + ModeText(serverMode) + ", API version " +
                                 (m_client.Api().IsApiVersionAtLeast13() ? "1.3 or later" : "before 1.3"));
        }
        else
        {
            step.Fail("shook hands with " + Server().Text() + ": " + CodeText(code) + " (" + Result::MeaningOf(code) + ")",
                      m_hasFailed ? "mend what failed above; '--trace -' shows each request" : AdviceOn(reply, code, !offered.empty()));
            if (const std::string answerer = Answerer(reply); !answerer.empty())
                step.lines.push_back(answerer);
        }
        step.lines.insert(step.lines.end(), offered.begin(), offered.end());
        End(step);
    }

    static bool IsRedirect(const Probe::Reply& reply) { return reply.status >= 300 && reply.status < 400; }

    static bool IsWebPage(const Probe::Reply& reply)
    {
        const std::size_t first = reply.body.find_first_not_of(" \t\r\n");
        return first != std::string::npos && reply.body[first] == '<';
    }

    // Which host seems to have answered instead of the server, and how; empty if unknown.
    static std::string Answerer(const Probe::Reply& reply)
    {
        if (reply.status == 511)
            return "HTTP 511: the network wants a login before it lets requests through";
        if (IsRedirect(reply))
        {
            // The query may contain secrets.
            const std::string target = reply.location.substr(0, reply.location.find_first_of("?#"));
            return "HTTP " + std::to_string(reply.status) + ": a redirect" +
                   (target.empty() ? " that does not say where to" : " to " + Printable(std::string_view(target)));
        }
        if (reply.status == 200 && IsWebPage(reply))
            return "HTTP 200 with a web page in place of the list of versions: a portal, a proxy or another kind of server";
        return {};
    }

    // What to do if the handshake failed: the library treats a list of versions that it cannot read as empty.
    [[nodiscard]] std::string AdviceOn(const Probe::Reply& reply, ResultCode code, bool areVersionsOffered) const
    {
        if (reply.status == 511)
            return "log in to the network: open any http:// page in a browser";
        if (IsRedirect(reply))
            return "redirects are not followed: name the address in --server, or log in to the network's portal first";
        if (reply.status == 200 && IsWebPage(reply))
            return "open " + Server().Text() + " in a browser to see whose page it is";
        if (code != Result::IncompatibleServer)
            return "'--trace -' shows each request and its reply";
        if (areVersionsOffered)
            return "the server offers none of the versions that this library speaks: one of the two needs an update";
        if (reply.status >= 500)
            return "the server, or a gateway before it, is out of order: try again later, then ask who runs it";
        if (reply.status == 401 || reply.status == 403 || reply.status == 407)
            return "something on the way wants a login of its own: a proxy, a gateway or the network's portal";
        return "is this the right server? Its " + std::string(kEndpoints) + " lists no versions";
    }

    // The versions that the server offers, as text and as the server states them.
    static std::pair<std::vector<std::string>, Json::Value> EndpointsOf(const std::string& body)
    {
        const Json::Value root = ParseJsonObject(body).value_or(Json::Value());
        std::vector<std::string> lines;
        for (const auto& api : root.getMemberNames())
        {
            if (!root[api].isObject())
                continue;
            for (const auto& version : root[api].getMemberNames())
            {
                const Json::Value& path = root[api][version].isObject() ? root[api][version]["path"] : Json::Value::nullSingleton();
                lines.push_back("offers " + Printable(std::string_view(api)) + " " + Printable(std::string_view(version)) +
                                (path.isString() ? " at " + Printable(std::string_view(path.asString())) : ""));
            }
        }
        return {lines, root};
    }

    bool Report()
    {
        m_document["ok"] = !m_hasFailed;
        if (m_client.PrintsJson())
            m_client.Print(m_document, {});
        return !m_hasFailed;
    }

    const Client& m_client;
    Json::Value m_document;
    bool m_hasFailed = false;
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
