#include "CommandLine.h"

#include "Completion.h"
#include "Failures.h"
#include "Identifier.h"
#include "TerminalText.h"
#include "TextConversion.h"
#include "TimeText.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <charconv>
#include <limits>
#include <memory>
#include <sstream>

namespace
{

// A server path with a leading slash, which the server requires, and without a trailing one.
std::wstring ServerPath(const std::string& text)
{
    if (text.empty())
        throw UsageError("an empty text is no path on the server; the user's root is /");
    std::wstring path = ToWide(text);
    if (path.front() != L'/')
        path.insert(path.begin(), L'/');
    while (path.size() > 1 && path.back() == L'/')
        path.pop_back();
    return path;
}

// As `ServerPath`, but a trailing slash is kept: it marks a folder.
std::wstring ServerTarget(const std::string& text)
{
    std::wstring path = ServerPath(text);
    if (text.ends_with('/') && path != L"/")
        path += L'/';
    return path;
}

std::wstring LocalFileArgument(const std::string& text)
{
    if (text.empty())
        throw UsageError("an empty text is no local file");
    return ToWide(text);
}

CAttributeTime TimeArgument(const std::string& text)
{
    const auto time = ParseTime(text);
    if (!time)
        throw UsageError("'" + text + "' is no time: write it like 2026-03-01, 2026-03-01T12:30:15 (local) or 2026-03-01T12:30:15Z (UTC)");
    return *time;
}

std::uint32_t AttributesArgument(const std::string& text)
{
    const bool isHexadecimal = text.starts_with("0x") || text.starts_with("0X");
    const std::string_view digits = std::string_view(text).substr(isHexadecimal ? 2 : 0);
    std::uint32_t value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, isHexadecimal ? 16 : 10);
    if (error != std::errc() || end != digits.data() + digits.size())
        throw UsageError("'" + text + "' is no attribute value: write a 32-bit number, decimal or like 0x20");
    return value;
}

Quendra::UploadId IdentifierArgument(const std::string& text)
{
    const auto id = ParseIdentifier(text);
    if (!id)
        throw UsageError("'" + text + "' is no upload id: it looks like 0F8FAD5B-D9CB-469F-A165-70867728950E");
    return *id;
}

std::uint64_t SizeArgument(const std::string& option, const std::string& text, std::uint64_t smallest)
{
    constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
    std::uint64_t size = 0;
    bool isSize = text.find('-') == std::string::npos; // the parser takes -1 for the largest number
    std::string bytes = text;
    isSize = isSize && CLI::AsSizeValue(false)(bytes).empty();
    const auto [end, error] = std::from_chars(bytes.data(), bytes.data() + bytes.size(), size);
    isSize = isSize && error == std::errc() && end == bytes.data() + bytes.size();
    if (!isSize || size < smallest || size > kLargest)
        throw UsageError(option + " cannot be '" + text + "': write a number of bytes" + (smallest > 0 ? " above 0" : "") +
                         ", also with a unit like 8MB");
    return size;
}

// An empty text would count as none, and the command would replace or delete whatever is there.
std::string RevisionArgument(const std::string& text)
{
    if (text.empty())
        throw UsageError("--revision cannot be empty");
    return text;
}

// The text below a command's options in the help.
std::string Footer(const std::string& examples)
{
    return "'quendra --help' lists the options that every command has.\n\nExamples:\n" + examples;
}

// A path after `--to` would be read as another recipient, but belongs to the list before `--to`.
std::wstring Recipient(const std::string& text)
{
    if (text.empty())
        throw UsageError("share: an empty text is no recipient");
    if (text.starts_with('/'))
        throw UsageError("share: '" + text + "' is a path, not a recipient: write quendra share PATH... --to RECIPIENT...");
    return ToWide(text);
}

// A command while its arguments are parsed. The closures that fill it keep it alive.
template <typename Type> class CommandBuilder
{
public:
    CommandBuilder(CLI::App& app, Command::Any& chosen, const std::string& name, const std::string& description,
                   const std::string& examples)
        : m_command(std::make_shared<Type>()), m_app(app.add_subcommand(name, description))
    {
        m_app->fallthrough();
        m_app->footer(Footer(examples));
        m_app->callback([command = m_command, &chosen] { chosen = *command; });
    }

    // A positional argument.
    template <typename Member, typename Convert>
    CommandBuilder& Positional(const std::string& name, Member Type::*member, Convert convert, const std::string& description)
    {
        Add(name, member, convert, description)->required()->type_name("");
        return *this;
    }

    template <typename Member, typename Convert>
    CLI::Option* Named(const std::string& name, Member Type::*member, Convert convert, const std::string& description)
    {
        return Add(name, member, convert, description);
    }

    // The parser counts a flag down where its value says no, as in "--recursive=false".
    CLI::Option* Flag(const std::string& name, bool Type::*member, const std::string& description)
    {
        const auto take = [command = m_command, member](std::int64_t count) { command.get()->*member = count > 0; };
        return m_app->add_flag_function(name, take, description);
    }

    CLI::Option* Size(const std::string& name, std::optional<std::uint64_t> Type::*member, const std::string& description,
                      std::uint64_t smallest = 0)
    {
        const auto convert = [name, smallest](const std::string& text) { return SizeArgument(name, text, smallest); };
        CLI::Option* option = Add(name, member, convert, description + ", in bytes or like 8MB (1 MB is 1024 KB)");
        return option->type_name("SIZE");
    }

    template <typename Convert>
    CLI::Option* List(const std::string& name, std::vector<std::wstring> Type::*member, Convert convert, const std::string& description)
    {
        const auto take = [command = m_command, member, convert](const std::vector<std::string>& values) {
            for (const auto& value : values)
                (command.get()->*member).push_back(convert(value));
        };
        return m_app->add_option_function<std::vector<std::string>>(name, take, description)
            ->required()
            ->expected(1, CLI::detail::expected_max_vector_size);
    }

private:
    template <typename Member, typename Convert>
    CLI::Option* Add(const std::string& name, Member Type::*member, Convert convert, const std::string& description)
    {
        const auto take = [command = m_command, member, convert](const std::string& value) { command.get()->*member = convert(value); };
        return m_app->add_option_function<std::string>(name, take, description);
    }

    std::shared_ptr<Type> m_command;
    CLI::App* m_app;
};

const auto kText = [](const std::string& text) { return ToWide(text); };
const auto kNarrow = [](const std::string& text) { return text; };

// Sets the help section of the commands added since the last call.
void GroupNewCommands(CLI::App& app, const std::string& title)
{
    const auto isNew = [](const CLI::App* command) { return command->get_group() == "Subcommands"; };
    for (CLI::App* command : app.get_subcommands(isNew))
        command->group(title);
}

void AddSessionCommands(CLI::App& app, Command::Any& chosen)
{
    CommandBuilder<Command::Handshake>(app, chosen, "handshake", "Ask the server for its mode and API version",
                                       "  quendra --server https://files.example.com handshake");
    CommandBuilder<Command::Version>(app, chosen, "version", "Ask the server for its version", "  quendra version --json");
    CommandBuilder<Command::Doctor>(app, chosen, "doctor",
                                    "Show the settings, then the handshake with the server step by step, with advice for a step that fails",
                                    "  quendra doctor\n  quendra doctor --server https://files.example.com --json");
    CommandBuilder<Command::Register>(app, chosen, "register", "Register this device for a user; the server sends the user an e-mail",
                                      "  quendra --server https://files.example.com --device laptop register ann")
        .Positional("USER", &Command::Register::user, kText, "The user's name");

    CommandBuilder<Command::Login> login(app, chosen, "login", "Open a session and save it for later commands",
                                         "  quendra --server files.example.com login ann\n"
                                         "  QUENDRA_PASSWORD=... quendra --server http://localhost:8080 login ann\n"
                                         "The password comes from QUENDRA_PASSWORD, else from a prompt, else from standard input.");
    login.Positional("USER", &Command::Login::user, kText, "The user's name");
    login.Named("--device-token", &Command::Login::deviceToken, kText, "The token that this device was registered with")
        ->type_name("TOKEN");

    CommandBuilder<Command::Logout>(app, chosen, "logout", "Forget the saved session; nothing is sent", "  quendra logout");
}

void AddFolderCommands(CLI::App& app, Command::Any& chosen)
{
    CommandBuilder<Command::List>(app, chosen, "ls", "List a folder", "  quendra ls /\n  quendra ls /docs --json")
        .Positional("PATH", &Command::List::path, ServerPath, "The folder on the server");
    CommandBuilder<Command::Stat>(app, chosen, "stat", "Show an item's attributes", "  quendra stat /docs/plan.txt")
        .Positional("PATH", &Command::Stat::path, ServerPath, "The item on the server");
    CommandBuilder<Command::MakeFolder>(app, chosen, "mkdir", "Create a folder", "  quendra mkdir /docs/2026")
        .Positional("PATH", &Command::MakeFolder::path, ServerPath, "The new folder");

    CommandBuilder<Command::Touch> touch(app, chosen, "touch", "Change an item's times and attribute bits; the others stay as they are",
                                         "  quendra touch /docs/plan.txt --modified now\n"
                                         "  quendra touch /docs/plan.txt --created 2026-03-01T12:30:15Z --attributes 0x20");
    touch.Positional("PATH", &Command::Touch::path, ServerPath, "The item on the server");
    const std::string timeForms = "now, 2026-03-01, 2026-03-01T12:30:15 (local) or with Z (UTC)";
    touch.Named("--created", &Command::Touch::created, TimeArgument, "Creation time: " + timeForms)->type_name("TIME");
    touch.Named("--modified", &Command::Touch::modified, TimeArgument, "Modification time, written likewise")->type_name("TIME");
    touch.Named("--attributes", &Command::Touch::attributes, AttributesArgument, "Windows file-attribute bits")->type_name("NUMBER");

    CommandBuilder<Command::Remove> remove(app, chosen, "rm", "Delete an item",
                                           "  quendra rm /docs/old.txt --revision 7\n  quendra rm /docs/2025 --recursive");
    remove.Positional("PATH", &Command::Remove::path, ServerPath, "The item on the server");
    remove.Named("--revision", &Command::Remove::revision, RevisionArgument, "Delete this revision only")->type_name("REVISION");
    remove.Flag("--recursive", &Command::Remove::recursive, "Delete also a folder that is not empty, with all that is in it");

    CommandBuilder<Command::Move> move(app, chosen, "mv", "Rename or move an item",
                                       "  quendra mv /docs/a.txt /docs/b.txt\n  quendra mv /docs/a.txt /archive/a.txt --overwrite");
    move.Positional("SOURCE", &Command::Move::source, ServerPath, "The item on the server");
    move.Positional("TARGET", &Command::Move::target, ServerTarget, "Its new path, or the folder to move it into");
    move.Flag("--overwrite", &Command::Move::overwrite,
              "Let a move to another folder replace what is there (a new name in the same folder always does)");
}

void AddTransferCommands(CLI::App& app, Command::Any& chosen)
{
    CommandBuilder<Command::Get> get(
        app, chosen, "get", "Download a file, a range of it, or a delta against a local copy",
        "  quendra get /docs/plan.txt plan.txt\n"
        "  quendra get /films/long.mkv long.mkv --skip 100MB --count 50MB\n"
        "  quendra get /docs/plan.txt plan.delta --signature plan.sig\n"
        "A range that starts at 0 replaces LOCAL; any other is written at its own position of LOCAL, which must exist.");
    get.Positional("PATH", &Command::Get::path, ServerPath, "The file on the server");
    get.Positional("LOCAL", &Command::Get::local, LocalFileArgument,
                   "The local file, or a folder to write it into. A file that exists is replaced when the whole download is there");
    get.Named("--revision", &Command::Get::revision, RevisionArgument, "Download this revision")->type_name("REVISION");
    CLI::Option* signature =
        get.Named("--signature", &Command::Get::signature, LocalFileArgument, "Signature of the local copy: download a delta");
    signature->type_name("FILE");
    get.Size("--skip", &Command::Get::skip, "First byte of the range")->excludes(signature);
    get.Size("--count", &Command::Get::count, "Bytes of the range")->excludes(signature);

    CommandBuilder<Command::Put> put(
        app, chosen, "put", "Upload a file, whole or in chunks that can be resumed, or a delta",
        "  quendra put plan.txt /docs/plan.txt\n"
        "  quendra put plan.delta /docs/plan.txt --delta --revision 7\n"
        "  quendra put long.mkv /films/long.mkv --chunk-size 8MB\n"
        "  quendra put long.mkv /films/long.mkv --chunk-size 8MB --resume 0F8FAD5B-D9CB-469F-A165-70867728950E");
    put.Positional("LOCAL", &Command::Put::local, LocalFileArgument, "The local file");
    put.Positional("PATH", &Command::Put::path, ServerTarget, "The file on the server, or the folder to put it into");
    put.Named("--revision", &Command::Put::revision, RevisionArgument, "Replace this revision only")->type_name("REVISION");
    CLI::Option* delta = put.Flag("--delta", &Command::Put::delta, "LOCAL is a delta against what the server has");
    CLI::Option* chunkSize = put.Size("--chunk-size", &Command::Put::chunkSize, "Upload in chunks of this size", 1);
    chunkSize->excludes(delta);
    put.Named("--resume", &Command::Put::resume, IdentifierArgument, "Go on with the upload of this id")->type_name("ID")->needs(chunkSize);

    CommandBuilder<Command::UploadStatus>(app, chosen, "upload-status", "Ask how much of a chunked upload the server has",
                                          "  quendra upload-status /films/long.mkv 0F8FAD5B-D9CB-469F-A165-70867728950E")
        .Positional("PATH", &Command::UploadStatus::path, ServerPath, "The file on the server")
        .Positional("ID", &Command::UploadStatus::id, IdentifierArgument, "The upload's id, as 'put' printed it");
    CommandBuilder<Command::UploadCancel>(app, chosen, "upload-cancel", "Abandon a chunked upload",
                                          "  quendra upload-cancel /films/long.mkv 0F8FAD5B-D9CB-469F-A165-70867728950E")
        .Positional("PATH", &Command::UploadCancel::path, ServerPath, "The file on the server")
        .Positional("ID", &Command::UploadCancel::id, IdentifierArgument, "The upload's id, as 'put' printed it");
    CommandBuilder<Command::UploadComplete>(
        app, chosen, "upload-complete", "Finish a chunked upload under another path",
        "  quendra upload-complete /films/long.mkv /films/final.mkv 0F8FAD5B-D9CB-469F-A165-70867728950E")
        .Positional("PATH", &Command::UploadComplete::path, ServerPath, "The file on the server")
        .Positional("NEWPATH", &Command::UploadComplete::newPath, ServerPath, "The path to finish it under")
        .Positional("ID", &Command::UploadComplete::id, IdentifierArgument, "The upload's id, as 'put' printed it");
}

void AddFeedAndSharingCommands(CLI::App& app, Command::Any& chosen)
{
    CommandBuilder<Command::Changes>(app, chosen, "changes", "Wait for changes on the server and print them",
                                     "  quendra changes\n  quendra changes --follow --json")
        .Flag("--follow", &Command::Changes::follow, "Go on until Ctrl-C, also over a restart of the server");
    CommandBuilder<Command::Mappings>(app, chosen, "mappings", "List the server's folder mappings", "  quendra mappings");

    CommandBuilder<Command::Share> share(
        app, chosen, "share", "Share items with recipients",
        "  quendra share /docs/plan.txt /docs/2026 --to bob@example.com eve@example.com --message \"Have a look\"");
    share.List("PATH", &Command::Share::paths, ServerPath, "The items on the server")->type_name("");
    share.List("--to", &Command::Share::recipients, Recipient, "The recipients, to the next option; paths stand before it")
        ->type_name("RECIPIENT");
    share.Named("--name", &Command::Share::name, kText, "What to call the share")->type_name("NAME");
    share.Named("--message", &Command::Share::message, kText, "A message to the recipients")->type_name("TEXT");

    CommandBuilder<Command::Audit>(app, chosen, "audit", "Publish audit data",
                                   "  quendra audit report.json\n  quendra audit - < report.json")
        .Positional("FILE", &Command::Audit::file, kNarrow,
                    "A local file in UTF-8, up to 1018 characters when escaped for a form; - is standard input");
    CommandBuilder<Command::WipeAcknowledgement>(app, chosen, "wipe-ack", "Tell the server that a device carried out a remote wipe",
                                                 "  quendra wipe-ack ann LAPTOP-7")
        .Positional("USER", &Command::WipeAcknowledgement::user, kText, "The user's name")
        .Positional("DEVICEID", &Command::WipeAcknowledgement::deviceId, kText, "The device that was wiped");
}

void AddOptions(CLI::App& app, Options& options)
{
    const auto addText = [&app](const std::string& name, const std::string& type, const auto& take, const std::string& description) {
        app.add_option_function<std::string>(name, take, description)->type_name(type);
    };
    addText(
        "--server", "URL", [&options](const std::string& text) { options.server = ParseServer(text); },
        "https://host or http://host; a host alone means https; default: QUENDRA_SERVER, else the saved session's");
    addText(
        "--port", "N", [&options](const std::string& text) { options.port = ParsePort(text); },
        "default: QUENDRA_PORT, else 443 for https, else 80");
    addText(
        "--device", "NAME", [&options](const std::string& text) { options.device = ToWide(text); },
        "device name; default: the machine's name");
    addText(
        "--token", "TOKEN", [&options](const std::string& text) { options.token = text; },
        "session token; default: QUENDRA_TOKEN, else the saved session's");
    addText(
        "--trace", "FILE", [&options](const std::string& text) { options.trace = text; },
        "trace events as text lines, - for standard error; they hold session tokens");
    addText(
        "--timeline", "FILE", [&options](const std::string& text) { options.timeline = text; },
        "the trace as JSON that a browser shows as a picture over time (ui.perfetto.dev), without session tokens");
    app.add_flag("--json", options.json, "the result as one JSON document on standard output");
    app.add_flag("--quiet", options.quiet, "no progress bar, and no messages about waiting");
}

// The options of the program, followed by those of each command.
std::vector<CommandWords> AllWords(CLI::App& app)
{
    std::vector<CommandWords> all;
    const auto add = [&all](const CLI::App& command, const std::string& name) {
        CommandWords& words = all.emplace_back(CommandWords{name, {}});
        for (const CLI::Option* option : command.get_options())
            for (const auto& optionName : option->get_lnames())
                if (name.empty() || optionName != "help")
                    words.options.push_back("--" + optionName);
    };
    add(app, "");
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; }))
        add(*command, command->get_name());
    return all;
}

// Needs neither library nor server: the output is handled like help.
void AddCompletion(CLI::App& app)
{
    CLI::App* completion = app.add_subcommand("completion", "Print a script that completes commands in a shell");
    completion->fallthrough();
    completion->footer(Footer("  source <(quendra completion bash)\n"
                              "  quendra completion bash > ~/.local/share/bash-completion/completions/quendra"));
    completion
        ->add_option_function<std::string>(
            "SHELL", [&app](const std::string&) { throw HelpRequest{BashCompletion(AllWords(app))}; }, "bash")
        ->required()
        ->type_name("")
        ->check(CLI::IsMember({"bash"}).description(""));
}

void AddEnvironment(Options& options, const EnvironmentLookup& environment)
{
    const auto lookUp = [&environment](const char* name) {
        const auto value = environment(name);
        if (value && !IsValidUtf8(*value))
            throw UsageError(std::string(name) + " is not valid UTF-8");
        return value && !value->empty() ? value : std::nullopt;
    };
    if (!options.server)
        if (const auto server = lookUp("QUENDRA_SERVER"))
            options.server = ParseServer(*server);
    const bool isPortNamed = options.port || (options.server && options.server->port);
    if (!isPortNamed)
        if (const auto port = lookUp("QUENDRA_PORT"))
            options.port = ParsePort(*port);
    if (!options.token)
        options.token = lookUp("QUENDRA_TOKEN");
}

// The parser's message in plain words.
std::string Plain(const CLI::ParseError& error)
{
    const std::string text = error.what();
    const std::string option = text.substr(0, text.find(':'));
    if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) == nullptr)
        return text;
    return option + (text.find("At Most") != std::string::npos ? " is given more than once" : " needs a value");
}

// The message for a command line without a command.
std::string WithoutCommand(const CLI::App& app)
{
    for (const auto& word : app.remaining())
        return word.starts_with('-') ? "there is no option " + word : "there is no command '" + word + "'";
    return "a command is missing";
}

} // namespace

CommandLine ParseCommandLine(std::vector<std::string> arguments, const EnvironmentLookup& environment)
{
    CommandLine line;
    CLI::App app("The command line of the QuendraHttp library: one command for each operation.\n", "quendra");
    // Server paths begin with a slash: they are not options, even on Windows.
    app.allow_windows_style_options(false);
    app.require_subcommand(1);
    app.set_version_flag("--version", "quendra " QUENDRA_VERSION, "Print the version and exit");
    app.get_formatter()->label("SUBCOMMAND", "COMMAND");
    app.footer(
        "'quendra COMMAND --help' explains a command. Exit status: 0 done, 1 failed, 2 wrong usage, 130 interrupted.\n"
        "\nExamples:\n  quendra --server https://files.example.com login ann\n  quendra ls /\n  quendra get /docs/plan.txt plan.txt\n"
        "\nThe session is saved in a file that only you can read; QUENDRA_SESSION names another.");
    AddOptions(app, line.options);
    AddSessionCommands(app, line.command);
    GroupNewCommands(app, "Session commands");
    AddFolderCommands(app, line.command);
    GroupNewCommands(app, "Folder commands");
    AddTransferCommands(app, line.command);
    GroupNewCommands(app, "Transfer commands");
    AddFeedAndSharingCommands(app, line.command);
    GroupNewCommands(app, "Feed and sharing commands");
    AddCompletion(app);
    GroupNewCommands(app, "The program itself");

    for (const auto& argument : arguments)
        if (!IsValidUtf8(argument))
            throw UsageError("'" + Printable(std::string_view(argument)) + "' is not valid UTF-8, which names are taken in");
    if (arguments.empty())
        throw UsageError("a command is missing");
    std::reverse(arguments.begin(), arguments.end()); // the order in which the parser takes a vector
    try
    {
        app.parse(std::move(arguments));
    }
    catch (const CLI::Success& help)
    {
        std::ostringstream text;
        app.exit(help, text, text);
        throw HelpRequest{text.str()};
    }
    catch (const CLI::ExtrasError&)
    {
        std::string words; // the parser's own list is in the reverse order
        for (const auto& word : app.remaining(true))
            words += " " + word;
        throw UsageError(app.get_subcommands().empty() ? WithoutCommand(app)
                                                       : app.get_subcommands().front()->get_name() + ": not expected:" + words);
    }
    catch (const CLI::ParseError& error)
    {
        throw UsageError(app.get_subcommands().empty() ? WithoutCommand(app)
                                                       : app.get_subcommands().front()->get_name() + ": " + Plain(error));
    }
    AddEnvironment(line.options, environment);
    return line;
}
