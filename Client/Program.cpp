#include "Program.h"

#include "Client.h"
#include "CommandLine.h"
#include "Failures.h"
#include "ServerAnswer.h"
#include "System.h"
#include "TerminalText.h"
#include "TextConversion.h"
#include "Tracing.h"

#include "Eventing/EventSink.h"
#include "Eventing/Timeline.h"
#include "Eventing/TraceFile.h"
#include "QuendraHttp/QuendraHttp.h"

#include <algorithm>
#include <cerrno>
#include <concepts>
#include <exception>
#include <filesystem>
#include <iostream>
#include <memory>
#include <system_error>
#include <utility>

namespace
{

// The library between its two exports, and the sink for its events.
class Library
{
public:
    explicit Library(const Options& options)
    {
        if (!options.trace.empty())
            m_trace = OpenTrace(options.trace);
        if (!options.timeline.empty())
            m_timeline.reset(OpenNewTimeline(options.timeline));
        m_sink = OpenEventSink(kInformational, Eventing::kAnyKeyword, TakeEvent, this);
        // The program links its own copy of the code that it shares with the library.
        EventProviderHandle = m_sink;
        Check("Init", static_cast<ResultCode>(Init(EventProviderHandle)));
    }

    ~Library()
    {
        Exit();
        CloseEventSink(m_sink);
        EventProviderHandle = 0;
    }

    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;

    [[nodiscard]] bool IsTraceComplete() const { return !m_trace || m_trace->IsComplete(); }
    [[nodiscard]] AnswerReader& Answers() { return m_answers; }

private:
    static constexpr std::uint8_t kInformational = 4;

    static void TakeEvent(void* context, const Eventing::Event* event) noexcept
    {
        auto& self = *static_cast<Library*>(context);
        if (self.m_trace)
            self.m_trace->Take(*event);
        if (self.m_timeline)
            AddToTimeline(self.m_timeline.get(), event);
        try
        {
            self.m_answers.Take(*event);
        }
        catch (const std::exception&)
        {
            // Failures are then reported with less detail.
        }
    }

    // What it will contain is for its owner only.
    static std::filesystem::path PreparedFile(const std::string& file)
    {
        const std::wstring local = System::LocalPath(ToWide(file));
        std::filesystem::path path = System::ToPath(local);
        if (System::FileFacts facts; System::ReadFileFacts(local, facts) != Result::Success)
            if (const std::error_code failure = System::WritePrivateFile(path, {}))
                throw std::system_error(failure);
        return path;
    }

    static std::unique_ptr<Eventing::TraceFile> OpenTrace(const std::string& file)
    {
        try
        {
            return std::make_unique<Eventing::TraceFile>(file == "-" ? "-" : PreparedFile(file));
        }
        catch (const std::exception& error)
        {
            throw ProgramError("--trace " + file + ": " + error.what());
        }
    }

    static Eventing::Timeline* OpenNewTimeline(const std::string& file)
    {
        try
        {
            errno = 0;
            if (auto* const timeline = OpenTimeline(ToNarrow(System::ToText(PreparedFile(file))).c_str()))
                return timeline;
            throw std::system_error(errno != 0 ? errno : EIO, std::generic_category());
        }
        catch (const std::exception& error)
        {
            throw ProgramError("--timeline " + file + ": " + error.what());
        }
    }

    struct TimelineCloser
    {
        void operator()(Eventing::Timeline* timeline) const
        {
            if (CloseTimeline(timeline) == 0)
                std::cerr << "quendra: the timeline has gaps: not every event could be written" << std::endl;
        }
    };

    std::unique_ptr<Eventing::TraceFile> m_trace;
    std::unique_ptr<Eventing::Timeline, TimelineCloser> m_timeline;
    AnswerReader m_answers;
    Eventing::ProviderHandle m_sink = 0;
};

template <typename Type, typename... Types> constexpr bool IsOneOf = (std::same_as<Type, Types> || ...);

template <typename Type>
constexpr bool kWorksWithoutSession = IsOneOf<Type, Command::Handshake, Command::Doctor, Command::Login, Command::Register>;
template <typename Type> constexpr bool kShakesHandsItself = IsOneOf<Type, Command::Handshake, Command::Doctor, Command::Logout>;

template <typename Type> void Run(Client& client, const Type& command)
{
    // Without a server the doctor still reports on this machine.
    const bool needsServer = !std::same_as<Type, Command::Logout> && (!std::same_as<Type, Command::Doctor> || client.KnowsServer());
    if (needsServer)
        client.Connect(!kWorksWithoutSession<Type>);
    // The other commands need the paths of the endpoints, and a password is only sent to a server that completed the handshake.
    if constexpr (!kShakesHandsItself<Type>)
    {
        std::uint32_t serverMode = 0;
        std::uint32_t handshakeValue = 0;
        Check("Init", client.Api().Init(serverMode, handshakeValue));
    }
    Execute(client, command);
}

int RunCommand(const CommandLine& line)
{
    try
    {
        Library library(line.options);
        Client client(line.options, library.Answers());
        try
        {
            std::visit([&client](const auto& command) { Run(client, command); }, line.command);
        }
        catch (const OperationFailed& failure)
        {
            client.ReportFailure(failure.Operation(), failure.Code(), failure.Advice());
            return failure.Code() == Result::Cancelled ? ExitStatus::Interrupted : ExitStatus::Failed;
        }
        if (!library.IsTraceComplete())
            client.Note("quendra: the trace has gaps: not every event could be written");
        return ExitStatus::Done;
    }
    catch (const UsageError&)
    {
        throw;
    }
    catch (const Interrupted&)
    {
        return ExitStatus::Interrupted;
    }
    catch (const ChecksFailed&)
    {
        return ExitStatus::Failed;
    }
    catch (const std::exception& error)
    {
        std::cerr << "quendra: " << Printable(std::string_view(error.what())) << std::endl;
        PrintFailure(line.options, error.what());
        return ExitStatus::Failed;
    }
}

} // namespace

int RunProgram(const std::vector<std::string>& arguments)
{
    // Needed also if the rest of the command line is invalid.
    Options options;
    options.json = std::ranges::find(arguments, "--json") != arguments.end();
    try
    {
        return RunCommand(ParseCommandLine(arguments, System::Environment));
    }
    catch (const HelpRequest& help)
    {
        PrintOutput(help.text);
        return ExitStatus::Done;
    }
    catch (const UsageError& error)
    {
        std::cerr << "quendra: " << Printable(std::string_view(error.what())) << "\nTry 'quendra --help' or 'quendra COMMAND --help'."
                  << std::endl;
        PrintFailure(options, error.what());
        return ExitStatus::WrongUsage;
    }
}
