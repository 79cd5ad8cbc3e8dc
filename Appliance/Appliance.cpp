#include "Appliance.h"

#include "Feed.h"
#include "HttpServer.h"
#include "ItemStore.h"
#include "LineWriter.h"
#include "Router.h"

#include <system_error>

using namespace ApplianceParts;

struct Appliance::Parts
{
    Parts(const Options& options, std::ostream& stream)
        : output(stream),
          logsRequests(options.logsRequests),
          state(options.root),
          sessions(options, state),
          items(options.root, state, feed),
          router(options.apiVersions, sessions),
          server(MakeHttpServer(options.mostConnections, Connections(options)))
    {
        items.EnsureHome();
        for (const auto& session : sessions.All())
            feed.Open(session.token);
        AddSessionRoutes(router, options, sessions, feed, items, state, output);
        AddItemRoutes(router, items, state);
        AddResumeRoutes(router, items, state);
    }

    ConnectionServer Connections(const Options& options)
    {
        const auto handler = [this](const Request& request) { return Serve(request); };
        return options.certificate.empty() ? ServePlain(handler) : ServeTls(options.certificate, options.privateKey, handler);
    }

    Reply Serve(const Request& request)
    {
        Reply reply = Answer(request);
        if (logsRequests)
            output.Write(request.method + " " + request.path + " -> " + std::to_string(reply.status) + ", " +
                         std::to_string(reply.Length()) + " bytes");
        return reply;
    }

    Reply Answer(const Request& request) const
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

    LineWriter output;
    const bool logsRequests;
    StateFolder state;
    Sessions sessions;
    Feed feed;
    ItemStore items;
    Router router;
    std::unique_ptr<IHttpServer> server;
};

Appliance::Appliance(const Options& options, std::ostream& output)
    : m_parts(std::make_unique<Parts>(options, output)), m_isSecure(!options.certificate.empty()), m_requestedPort(options.port)
{
}

Appliance::~Appliance()
{
    Stop();
}

int Appliance::Start()
{
    m_port = m_parts->server->Start(m_requestedPort);
    return m_port;
}

void Appliance::Stop()
{
    m_parts->feed.Stop();
    m_parts->server->Stop();
}

std::string Appliance::Url() const
{
    return (m_isSecure ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(m_port);
}
