#include "Options.h"

#include "Item.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <ostream>
#include <string>

namespace ApplianceParts
{

namespace
{

// Clients support only these versions.
std::string CheckVersion(const std::string& text)
{
    bool isSupported = text == "1";
    for (int minor = 0; minor <= 50; ++minor)
        isSupported = isSupported || text == "1." + std::to_string(minor);
    return isSupported ? "" : "the versions of the API are 1 and 1.0 to 1.50";
}

// An option that names a file or folder. An unset variable of a script gives an empty name, which would stand for the working folder.
CLI::Option* AddFile(CLI::App& app, const std::string& name, std::filesystem::path& path, const std::string& description)
{
    const auto take = [name, &path](const std::string& text) {
        if (text.empty())
            throw CLI::ValidationError(name, "the name is empty");
        path = ToFilePath(text);
    };
    return app.add_option_function<std::string>(name, take, description)->type_name("FILE");
}

} // namespace

std::optional<Options> ParseCommandLine(std::vector<std::string> arguments, std::ostream& output, std::ostream& errors, int& exitStatus)
{
    Options options;
    std::string mode = "legacy";
    std::filesystem::path faults;
    // Only in decimal: the parser would take 010 for 8.
    const auto takePort = [&options](const std::string& text) { options.port = static_cast<int>(ReadNumber(text, "--port")); };
    const auto takeSeed = [&options](const std::string& text) { options.faultSeed = ReadNumber(text, "--seed"); };
    const auto takeUser = [&options](const std::string& text) {
        const auto colon = text.find(':');
        if (colon == std::string::npos || colon == 0)
            throw CLI::ValidationError("--user", "a user is given as NAME:PASSWORD");
        options.user = text.substr(0, colon);
        options.password = text.substr(colon + 1);
    };

    CLI::App app("A sample server that keeps its items in a folder: for trying things out and for tests, not for production.",
                 "quendra-appliance");
    app.get_formatter()->label("REQUIRED", "(required)");
    AddFile(app, "--root", options.root, "The folder that holds the items; made where it does not exist")->required()->type_name("FOLDER");
    app.add_option_function<std::string>("--port", takePort, "The port of 127.0.0.1 to listen on; default: any free one")
        ->check(CLI::Range(0, 65535).description(""))
        ->type_name("N");
    app.add_option_function<std::string>("--user", takeUser, "The one user and the password; default: demo:demo")
        ->type_name("NAME:PASSWORD");
    auto* const certificate = AddFile(app, "--cert", options.certificate, "The certificate chain (PEM) to serve https with");
    AddFile(app, "--key", options.privateKey, "The certificate's private key (PEM)")->needs(certificate);
    certificate->needs("--key");
    app.add_option("--mode", mode, "How devices log in: legacy (default) or device-token")
        ->check(CLI::IsMember({"legacy", "device-token"}).description(""))
        ->type_name("MODE");
    app.add_option("--api", options.apiVersions, "The API versions to offer; default: 1.0,1.1,1.2,1.3")
        ->delimiter(',')
        ->check(CLI::Validator(CheckVersion, ""))
        ->type_name("VERSION,");
    app.add_flag("--log", options.logsRequests, "Print a line for each request");
    auto* const plan = AddFile(app, "--faults", faults, "The plan (JSON) of faults to play; each is printed as it is played");
    app.add_option_function<std::string>("--seed", takeSeed, "Chooses the faults; default: 1")->type_name("N")->needs(plan);

    try
    {
        std::reverse(arguments.begin(), arguments.end()); // the order in which the parser takes a vector
        app.allow_extras();
        app.parse(arguments);
        for (const auto& extra : app.remaining())
            throw CLI::ValidationError("the argument '" + extra + "' was not expected");
        if (!faults.empty())
            options.faults = ReadFaultPlanFile(faults);
        options.needsDeviceToken = mode == "device-token";
        return options;
    }
    catch (const CLI::CallForHelp&)
    {
        output << app.help();
        exitStatus = 0;
    }
    catch (const std::runtime_error& error)
    {
        errors << "quendra-appliance: " << error.what() << "\nTry 'quendra-appliance --help'.\n";
        exitStatus = 2;
    }
    return std::nullopt;
}

} // namespace ApplianceParts
