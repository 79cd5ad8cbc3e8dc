#include "Appliance.h"

#include "Feed.h"
#include "HttpServer.h"
#include "ItemStore.h"
#include "ResumeStore.h"
#include "Routes.h"

#include <mutex>
#include <ostream>

using namespace ApplianceParts;

namespace
{

ChannelFactory ChannelsFor(const Options& options)
{
    return options.certificate.empty() ? PlainChannels() : TlsChannels(options.certificate, options.privateKey);
}

} // namespace

struct Appliance::Parts
{
    Parts(const Options& options, std::ostream& output)
        : state(options.root),
          sessions(options, state),
          items(options.root, state, feed),
          uploads(state),
          router(options.apiVersions, sessions),
          server(ChannelsFor(options), options.mostConnections, [this](const Request& request) { return Serve(request); }),
          log(options.logsRequests ? &output : nullptr)
    {
        items.EnsureHome();
        for (const auto& session : sessions.All())
            feed.Open(session.token);
        AddHandshakeRoutes(router, options);
        AddSessionRoutes(router, sessions, feed, state, output);
        AddFolderRoutes(router, items, state);
        AddResumeRoutes(router, uploads, items);
        AddDeltaRoutes(router, items, state);
        AddFeedRoutes(router, feed);
        AddNoticeRoutes(router, items, state);
    }

    Reply Serve(const Request& request)
    {
        Reply reply = Answer(request);
        if (log != nullptr)
        {
            const auto size = reply.content ? reply.content->length : reply.text.size();
            const std::string line =
                request.method + " " + request.path + " -> " + std::to_string(reply.status) + ", " + std::to_string(size) + " bytes\n";
            const std::lock_guard guard(logMutex);
            *log << line << std::flush;
        }
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
    }

    StateFolder state;
    Sessions sessions;
    Feed feed;
    ItemStore items;
    ResumeStore uploads;
    Router router;
    HttpServer server;
    std::ostream* log; // null for none
    std::mutex logMutex;
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
    m_port = m_parts->server.Start(m_requestedPort);
    return m_port;
}

void Appliance::Stop()
{
    m_parts->feed.Stop();
    m_parts->server.Stop();
}

std::string Appliance::Url() const
{
    return (m_isSecure ? "https://127.0.0.1:" : "http://127.0.0.1:") + std::to_string(m_port);
}
