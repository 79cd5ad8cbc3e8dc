#include "Timeline.h"

#include "SystemTracing.h"
#include "TextConversion.h"
#include "UtcText.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <locale>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace Eventing
{
namespace
{

using Clock = std::chrono::steady_clock;

constexpr std::string_view kExceptionExit = "[EXCEPTION EXIT]";
constexpr std::string_view kConnectionSteps = "WinHttpRequest::OnStatus";

// The messages between the steps of a connection: each ends the bar before it, and begins its own if it has one.
struct Step
{
    std::string_view message;
    const char* bar;
};
constexpr Step kSteps[] = {
    {"Resolving the name ", "name resolution"}, {"Resolved the name: ", nullptr}, {"Connecting to ", "TCP connection"},
    {"Connected to ", "TLS handshake, if any"}, {"Sending the request", nullptr},
};

const Step* StepOf(const Event& event)
{
    if (event.message == nullptr || event.function != kConnectionSteps)
        return nullptr;
    for (const Step& step : kSteps)
        if (std::string_view(event.message).starts_with(step.message))
            return &step;
    return nullptr;
}

// The members of every record of an event.
std::string Head(char phase, std::chrono::duration<double, std::micro> time)
{
    const auto nanoseconds = static_cast<long long>(std::chrono::duration_cast<std::chrono::nanoseconds>(time).count());
    std::array<char, 64> text{};
    // Not as a double: a program's locale may have a decimal comma.
    std::snprintf(text.data(), text.size(), R"("ph":"%c","ts":%lld.%03lld)", phase, nanoseconds / 1000, nanoseconds % 1000);
    return text.data();
}

// What stands before session tokens in messages: in the reply to a login, the two messages with tokens, and the paths of API 1.0.
constexpr std::string_view kBeforeSecrets[] = {"session_token", "New session token: ", "OriginalSession ", "/api/", "/notifs/"};

// Cuts to the end of the message: a token may have any character, also a slash or a question mark.
std::string WithoutSecrets(std::string text)
{
    for (const std::string_view before : kBeforeSecrets)
        if (const std::size_t at = text.find(before); at != std::string::npos)
            text.replace(at + before.size(), std::string::npos, "[cut]");
    return text;
}

std::string Quoted(std::string_view text)
{
    std::string result = "\"";
    for (const char character : ToNarrow(ToWide(text))) // without invalid bytes
    {
        std::array<char, 8> escaped{character};
        if (static_cast<unsigned char>(character) < ' ')
            std::snprintf(escaped.data(), escaped.size(), "\\u%04x", static_cast<unsigned>(character));
        else if (character == '"' || character == '\\')
            escaped = {'\\', character};
        result += escaped.data();
    }
    return result + '"';
}

const char* CategoryOf(std::uint8_t level)
{
    static constexpr std::array<const char*, 5> kLevels{"message", "critical", "error", "warning", "message"};
    return level < kLevels.size() ? kLevels[level] : "message";
}

} // namespace

class Timeline
{
public:
    explicit Timeline(std::string_view path) : m_file(std::filesystem::path(std::u8string(path.begin(), path.end())), std::ios::binary)
    {
        m_file.imbue(std::locale::classic()); // numbers without a thousands separator
        const auto now = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
        const std::string name = Quoted("QuendraHttp, from " + FormatUtc(now));
        Write(R"("name":"process_name","ph":"M","args":{"name":)" + name + "}", CurrentThreadId());
    }

    [[nodiscard]] bool IsComplete() const { return !m_file.fail(); }

    void Take(const Event& event) noexcept
    {
        const Time time = Clock::now() - m_start;
        const std::lock_guard lock(m_mutex);
        try
        {
            Add(event, time);
        }
        catch (const std::exception&)
        {
            m_file.setstate(std::ios::failbit);
        }
    }

    void Close()
    {
        m_file << "\n]\n";
        m_file.close();
    }

private:
    using Time = std::chrono::duration<double, std::micro>;

    void Add(const Event& event, Time time)
    {
        std::vector<bool>& bars = m_bars[event.threadId];
        const std::string place = std::string(R"("source":)") + Quoted(event.sourceUnit + (":" + std::to_string(event.line)));
        if (event.descriptor->id == kFunctionEntryId)
            return Begin(event, time, event.function, false, place);
        if (event.descriptor->id == kFunctionExitId)
            return EndFunction(event, time);

        const Step* const step = StepOf(event);
        if (step != nullptr && !bars.empty() && bars.back())
            End(event, time);
        Write(Head('i', time) + R"(,"s":"t","cat":")" + CategoryOf(event.descriptor->level) + R"(","name":)" +
                  Quoted(WithoutSecrets(event.message)) + R"(,"args":{"function":)" + Quoted(event.function) + "," + place + "}",
              event.threadId);
        if (step != nullptr && step->bar != nullptr)
            Begin(event, time, step->bar, true, place);
        if (event.message == kExceptionExit)
            EndFunction(event, time);
    }

    void Begin(const Event& event, Time time, const char* name, bool isStep, const std::string& place)
    {
        Write(Head('B', time) + R"(,"cat":")" + (isStep ? "connection" : "function") + R"(","name":)" + Quoted(name) + R"(,"args":{)" +
                  place + "}",
              event.threadId);
        m_bars[event.threadId].push_back(isStep);
    }

    void End(const Event& event, Time time)
    {
        m_bars[event.threadId].pop_back();
        Write(Head('E', time), event.threadId);
    }

    // Also ends a step that a failure has left open. A function that was entered before the timeline began has no bar.
    void EndFunction(const Event& event, Time time)
    {
        std::vector<bool>& bars = m_bars[event.threadId];
        if (!bars.empty() && bars.back())
            End(event, time);
        if (!bars.empty())
            End(event, time);
        if (bars.empty())
            m_bars.erase(event.threadId);
    }

    void Write(const std::string& members, std::uint32_t thread)
    {
        m_file << m_before << R"({"pid":)" << CurrentProcessId() << R"(,"tid":)" << thread << ',' << members << '}' << std::flush;
        m_before = ",\n";
    }

    std::ofstream m_file;
    const char* m_before = "[\n";
    const Clock::time_point m_start = Clock::now();
    std::mutex m_mutex;
    std::unordered_map<std::uint32_t, std::vector<bool>> m_bars; // the open ones of each thread; true: the step of a connection
};

} // namespace Eventing

Eventing::Timeline* OpenTimeline(const char* path) noexcept
{
    try
    {
        auto timeline = std::make_unique<Eventing::Timeline>(path != nullptr ? path : "");
        return timeline->IsComplete() ? timeline.release() : nullptr;
    }
    catch (const std::exception&)
    {
        return nullptr;
    }
}

void AddToTimeline(void* timeline, const Eventing::Event* event) noexcept
{
    static_cast<Eventing::Timeline*>(timeline)->Take(*event);
}

std::int32_t CloseTimeline(Eventing::Timeline* timeline) noexcept
{
    const std::unique_ptr<Eventing::Timeline> owner(timeline);
    if (timeline != nullptr)
        timeline->Close();
    return timeline == nullptr || timeline->IsComplete() ? 1 : 0;
}
