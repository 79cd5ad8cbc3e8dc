#include "Appliance.h"

#include "HttpServer.h"

namespace ApplianceParts
{

namespace
{

Reply Answer(const Router& router, const Request& request)
{
    try
    {
        return router.Handle(request);
    }
    catch (const ApiError& error)
    {
        return ErrorReply(error);
    }
    catch (const std::system_error& error)
    {
        return ErrorReply(ToApiError(error.code()));
    }
    catch (const std::exception& error)
    {
        return ErrorReply({500, ErrorId::Internal, error.what()});
    }
}

} // namespace

Appliance::Appliance(Options options, std::ostream& output)
    : m_options(std::move(options)),
      m_output(output),
      m_state(m_options.root),
      m_sessions(m_options, m_state, m_feed),
      m_items(m_options.root, m_state, m_feed),
      m_router(m_options.apiVersions, m_sessions),
      m_port(m_options.port)
{
    AddSessionRoutes(m_router, m_options, m_sessions, m_feed, m_items, m_state, m_output);
    AddItemRoutes(m_router, m_items, m_state);
    AddResumeRoutes(m_router, m_items, m_state);
}

void Appliance::Start()
{
    FaultChooser chooseFault;
    if (m_options.faults)
    {
        chooseFault = ChooseFrom(*m_options.faults, m_options.faultSeed, [this](const std::string& line) { m_output.Write(line); });
        chooseFault = [this, choose = std::move(chooseFault)](const FaultOccasion& occasion) {
            return m_playsFaults ? choose(occasion) : nullptr;
        };
    }
    m_server = StartHttpServer(
        m_options, m_port, [this](const Request& request) { return Serve(request); }, chooseFault);
}

void Appliance::Stop()
{
    m_feed.Stop();
    m_server = nullptr;
}

std::string Appliance::Url() const
{
    return (m_options.certificate.empty() ? "http://127.0.0.1:" : "https://127.0.0.1:") + std::to_string(m_port);
}

Reply Appliance::Serve(const Request& request)
{
    Reply reply = Answer(m_router, request);
    if (m_options.logsRequests)
        m_output.Write(request.method + " " + request.path + " -> " + std::to_string(reply.status) + ", " + std::to_string(reply.Length()) +
                       " bytes");
    return reply;
}

} // namespace ApplianceParts
