#include "CommandLine.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <map>
#include <ostream>
#include <regex>
#include <string>

namespace ApplianceParts
{

namespace
{

std::filesystem::path FromUtf8(const std::string& text)
{
    return std::filesystem::path(std::u8string(text.begin(), text.end()));
}

std::string CheckUser(const std::string& text)
{
    const auto colon = text.find(':');
    return colon == std::string::npos || colon == 0 ? "a user is given as NAME:PASSWORD" : "";
}

std::string CheckVersion(const std::string& text)
{
    static const std::regex pattern("[0-9]{1,4}(\\.[0-9]{1,4})?");
    return std::regex_match(text, pattern) ? "" : "a version is given as MAJOR.MINOR, such as 1.3";
}

} // namespace

std::optional<Options> ParseCommandLine(std::vector<std::string> arguments, std::ostream& output, std::ostream& errors, int& exitStatus)
{
    Options options;
    std::string root;
    std::string user = options.user + ":" + options.password;
    std::string certificate;
    std::string privateKey;

    CLI::App app("A sample server that keeps its items in a folder: for trying things out and for tests, not for production.",
                 "quendra-appliance");
    app.add_option("--root", root, "The folder that holds the items; made where it does not exist")->required()->type_name("FOLDER");
    app.add_option("--port", options.port, "The loopback port to listen on; 0: any free one")
        ->check(CLI::Range(0, 65535))
        ->capture_default_str();
    app.add_option("--user", user, "The one user and the password")->check(CheckUser)->type_name("NAME:PASSWORD")->capture_default_str();
    auto* const certificateOption =
        app.add_option("--cert", certificate, "The certificate chain (PEM) to serve https with")->type_name("FILE");
    auto* const keyOption = app.add_option("--key", privateKey, "The certificate's private key (PEM)")->type_name("FILE");
    certificateOption->needs(keyOption);
    keyOption->needs(certificateOption);
    const std::map<std::string, ServerMode> modes = {{"legacy", ServerMode::Legacy}, {"device-token", ServerMode::DeviceToken}};
    app.add_option("--mode", options.mode, "How devices log in: legacy or device-token")
        ->transform(CLI::Transformer(modes))
        ->type_name("MODE");
    app.add_option("--api", options.apiVersions, "The API versions to offer, separated by commas")
        ->delimiter(',')
        ->check(CheckVersion)
        ->type_name("1.0,1.1,...")
        ->capture_default_str();
    app.add_flag("--log", options.logsRequests, "Print a line for each request");

    try
    {
        std::reverse(arguments.begin(), arguments.end()); // as CLI11 takes them
        app.parse(arguments);
    }
    catch (const CLI::ParseError& error)
    {
        exitStatus = app.exit(error, output, errors) == 0 ? 0 : 2;
        return std::nullopt;
    }

    const auto colon = user.find(':');
    options.root = FromUtf8(root);
    options.user = user.substr(0, colon);
    options.password = user.substr(colon + 1);
    options.certificate = FromUtf8(certificate);
    options.privateKey = FromUtf8(privateKey);
    return options;
}

} // namespace ApplianceParts
