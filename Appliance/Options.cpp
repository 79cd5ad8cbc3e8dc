#include "Options.h"

#include "Item.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <ostream>
#include <regex>

namespace ApplianceParts
{

namespace
{

constexpr const char* kLegacy = "legacy";
constexpr const char* kDeviceToken = "device-token";

std::string CheckUser(const std::string& text)
{
    const auto colon = text.find(':');
    return colon == std::string::npos || colon == 0 ? "a user is given as NAME:PASSWORD" : "";
}

// What an unset variable of a script gives: it would stand for the working folder, or for no certificate.
std::string CheckFile(const std::string& text)
{
    return text.empty() ? "the name is empty" : "";
}

// Clients support only these versions.
std::string CheckVersion(const std::string& text)
{
    static const std::regex pattern("1(\\.([0-9]|[1-4][0-9]|50))?");
    return std::regex_match(text, pattern) ? "" : "the versions of the API are 1 and 1.0 to 1.50";
}

FaultPlan ReadPlanFile(const std::string& path)
{
    std::ifstream file(ToFilePath(path), std::ios::binary);
    if (!file)
        throw std::runtime_error("cannot read " + path);
    return ReadFaultPlan({std::istreambuf_iterator<char>(file), {}});
}

} // namespace

std::optional<Options> ParseCommandLine(std::vector<std::string> arguments, std::ostream& output, std::ostream& errors, int& exitStatus)
{
    Options options;
    std::string root;
    std::string user = options.user + ":" + options.password;
    std::string certificate;
    std::string privateKey;
    std::string mode = kLegacy;
    std::string faults;

    CLI::App app("A sample server that keeps its items in a folder: for trying things out and for tests, not for production.",
                 "quendra-appliance");
    app.get_formatter()->label("REQUIRED", "(required)");
    app.add_option("--root", root, "The folder that holds the items; made where it does not exist")
        ->required()
        ->check(CLI::Validator(CheckFile, ""))
        ->type_name("FOLDER");
    app.add_option("--port", options.port, "The port of 127.0.0.1 to listen on; default: any free one")
        ->check(CLI::Range(0, 65535).description(""))
        ->type_name("N");
    app.add_option("--user", user, "The one user and the password; default: demo:demo")
        ->check(CLI::Validator(CheckUser, ""))
        ->type_name("NAME:PASSWORD");
    app.add_option("--cert", certificate, "The certificate chain (PEM) to serve https with; goes with --key")
        ->check(CLI::Validator(CheckFile, ""))
        ->type_name("FILE");
    app.add_option("--key", privateKey, "The certificate's private key (PEM)")->check(CLI::Validator(CheckFile, ""))->type_name("FILE");
    app.add_option("--mode", mode, "How devices log in: legacy (default) or device-token")
        ->check(CLI::IsMember({kLegacy, kDeviceToken}).description(""))
        ->type_name("MODE");
    app.add_option("--api", options.apiVersions, "The API versions to offer; default: 1.0,1.1,1.2,1.3")
        ->delimiter(',')
        ->check(CLI::Validator(CheckVersion, ""))
        ->type_name("VERSION,");
    app.add_flag("--log", options.logsRequests, "Print a line for each request");
    app.add_option("--faults", faults, "The plan (JSON) of faults to play; each is printed as it is played")
        ->check(CLI::Validator(CheckFile, ""))
        ->type_name("FILE");
    const auto* const seed =
        app.add_option("--seed", options.faultSeed, "Chooses the faults; goes with --faults; default: 1")->type_name("N");

    const auto refuse = [&](const std::string& message) {
        errors << "quendra-appliance: " << message << "\nTry 'quendra-appliance --help'.\n";
        exitStatus = 2;
        return std::nullopt;
    };
    try
    {
        std::reverse(arguments.begin(), arguments.end()); // CLI11 takes them in reverse order
        app.parse(arguments);
        if (!faults.empty())
            options.faults = ReadPlanFile(faults);
    }
    catch (const CLI::CallForHelp&)
    {
        output << app.help();
        exitStatus = 0;
        return std::nullopt;
    }
    catch (const CLI::ExtrasError&)
    {
        return refuse("the argument '" + app.remaining().front() + "' was not expected");
    }
    catch (const CLI::ParseError& error)
    {
        return refuse(error.what());
    }
    catch (const std::runtime_error& error)
    {
        return refuse("--faults: " + std::string(error.what()));
    }
    if (certificate.empty() != privateKey.empty())
        return refuse("--cert and --key go together");
    if (seed->count() > 0 && faults.empty())
        return refuse("--seed goes with --faults");

    const auto colon = user.find(':');
    options.root = ToFilePath(root);
    options.user = user.substr(0, colon);
    options.password = user.substr(colon + 1);
    options.certificate = ToFilePath(certificate);
    options.privateKey = ToFilePath(privateKey);
    options.needsDeviceToken = mode == kDeviceToken;
    return options;
}

} // namespace ApplianceParts
