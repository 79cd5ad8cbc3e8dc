#include "Appliance.h"

#include "HttpServer.h"

#include "Eventing/EventLine.h"

#include <algorithm>
#include <ostream>
#include <syncstream>

namespace ApplianceParts
{

Appliance::Appliance(Options options, std::ostream& output) : m_services{std::move(options), output}, m_port(m_services.options.port)
{
}

void Appliance::Start()
{
    FaultChooser chooseFault;
    if (const auto& faults = m_services.options.faults)
    {
        const auto report = [this](const std::string& line) { std::osyncstream(m_services.output) << line << std::endl; };
        chooseFault = [this, choose = ChooseFrom(*faults, m_services.options.faultSeed, report)](const FaultOccasion& occasion) {
            return m_playsFaults ? choose(occasion) : nullptr;
        };
    }
    m_server = StartHttpServer(
        m_services.options, m_port, [this](const Request& request) { return Answer(request); }, chooseFault);
}

void Appliance::Stop()
{
    m_services.feed.Stop();
    m_server = nullptr;
}

std::string Appliance::Url() const
{
    return (m_services.options.certificate.empty() ? "http://127.0.0.1:" : "https://127.0.0.1:") + std::to_string(m_port);
}

Reply Appliance::Answer(const Request& request)
{
    Reply reply = Handle(m_services, request);
    if (!m_services.options.logsRequests)
        return reply;
    // In API 1.0 paths hold session tokens, of 32 hexadecimal digits.
    std::string path = Eventing::EscapeLine(request.path);
    for (auto at = path.find('/'); at != std::string::npos; at = path.find('/', at + 1))
        if (std::min(path.size(), path.find_first_not_of("0123456789abcdef", at + 1)) == at + 33)
            path.replace(at + 1, 32, "TOKEN");
    std::osyncstream(m_services.output) << request.method << ' ' << path << " -> " << reply.status << ", " << reply.Length() << " bytes"
                                        << std::endl;
    return reply;
}

} // namespace ApplianceParts
