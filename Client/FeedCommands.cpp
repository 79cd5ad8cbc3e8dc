// The change feed:
//
//     wait for changes --- some came ---> print them --+
//       ^    |    |                                    |
//       |    |    +--- none came: go on ---------------+
//       |    |                                         |
//       |  the server is away                          |
//       |    v                                         |
//       +-- pause, longer each time                    |
//       +----------------------------------------------+
//
// Ctrl-C ends the wait and the pause.

#include "Cancellation.h"
#include "Client.h"
#include "Commands.h"
#include "FailureText.h"
#include "Failures.h"
#include "NotificationAction.h"
#include "TerminalText.h"
#include "TextConversion.h"

#include "QuendraHttp/QuendraHttp.h"

#include <algorithm>
#include <chrono>
#include <iterator>
#include <list>
#include <memory>
#include <vector>

namespace
{

using namespace std::chrono_literals;
using Actions = std::vector<std::unique_ptr<CNotificationAction>>;

constexpr const wchar_t* kFeedKey = L"/notifs";
constexpr ResultCode kTimeout = 12002;
constexpr std::chrono::milliseconds kFirstPause = 1s;
constexpr std::chrono::milliseconds kLongestPause = 60s;
// A server that answers sooner than this without news does not wait for changes: pause, to avoid a busy loop.
constexpr std::chrono::milliseconds kShortestPoll = 1s;

std::string TypeName(NotificationType type)
{
    constexpr const char* kNames[] = {"unknown", "create", "upload", "move", "copy", "rename", "delete", "policy", "update", "mode"};
    const auto index = static_cast<std::size_t>(type);
    return index < std::size(kNames) ? kNames[index] : kNames[0];
}

Json::Value ActionDocument(const CNotificationAction& action)
{
    Json::Value document;
    document["type"] = static_cast<Json::Int>(action.Type);
    document["typeName"] = TypeName(action.Type);
    document["value"] = ToNarrow(action.Value);
    document["value2"] = ToNarrow(action.Value2);
    return document;
}

void PrintActions(const Client& client, const Actions& actions)
{
    Json::Value document;
    document["actions"] = Json::Value(Json::arrayValue);
    std::string text;
    for (const auto& action : actions)
    {
        document["actions"].append(ActionDocument(*action));
        std::string name = TypeName(action->Type);
        name.resize(8, ' ');
        text += name + Printable(action->Value) + (action->Value2.empty() ? "" : " -> " + Printable(action->Value2)) + "\n";
    }
    client.Print(document, text);
}

// Records that arrived before a failure are among the actions too.
ResultCode WaitForChanges(const Client& client, Actions& actions)
{
    std::list<CNotificationAction*> received;
    const ResultCode code = client.Api().GetChanges(received);
    for (auto* action : received)
        actions.emplace_back(action);
    return code;
}

// Whether a failure may go away by itself.
bool MayPass(ResultCode code)
{
    const bool isBusyServer = code >= Result::RefusalBase + 500 && code <= Result::RefusalBase + 599;
    return IsConnectionFailure(code) || isBusyServer || code == Result::RefusalBase + 429 || code == Result::Retry ||
           code == Result::InvalidHandle;
}

class FeedFollower
{
public:
    FeedFollower(const Client& client, const Cancellation& cancellation) : m_client(client), m_cancellation(cancellation) {}

    void Run()
    {
        while (!m_cancellation.IsRequested())
        {
            const auto began = std::chrono::steady_clock::now();
            Actions actions;
            const ResultCode code = WaitForChanges(m_client, actions);
            if (!actions.empty())
                PrintActions(m_client, actions);
            if (m_cancellation.IsRequested())
                return;
            const bool wasLong = std::chrono::steady_clock::now() - began >= kShortestPoll;
            // A feed without news may end with a time-out.
            if (code == Result::Success || (code == kTimeout && wasLong))
            {
                m_pause = kFirstPause;
                if (actions.empty() && !wasLong)
                    m_cancellation.Pause(kShortestPoll);
            }
            else
            {
                Recover(code);
            }
        }
    }

private:
    void Recover(ResultCode code)
    {
        if (!MayPass(code))
            throw OperationFailed("GetChanges", code);
        const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(m_pause).count();
        m_client.Note("quendra: GetChanges failed: " + CodeText(code) + " (" + FailureMeaning(code, m_client.Answer()) + "); next try in " +
                      std::to_string(seconds) + " s");
        m_cancellation.Pause(m_pause);
        m_pause = std::min(m_pause * 2, kLongestPause);
    }

    const Client& m_client;
    const Cancellation& m_cancellation;
    std::chrono::milliseconds m_pause = kFirstPause;
};

} // namespace

namespace Command
{

void Execute(Client& client, const Changes& command)
{
    const Cancellation cancellation(client, kFeedKey, 0ms);
    if (client.ShowsProgress())
        client.Note("Waiting for changes; Ctrl-C ends it.");
    if (command.follow)
    {
        FeedFollower(client, cancellation).Run();
        throw Interrupted();
    }
    Actions actions;
    const ResultCode code = WaitForChanges(client, actions);
    if (code != Result::Success && cancellation.IsRequested())
        throw Interrupted();
    Check("GetChanges", code);
    if (actions.empty() && !client.PrintsJson())
        client.Print({}, "No changes.\n");
    else
        PrintActions(client, actions);
}

} // namespace Command
