#include "Run.h"

#include "Appliance.h"
#include "CommandLine.h"

#include <exception>
#include <iostream>

namespace ApplianceParts
{

int Run(std::vector<std::string> arguments, const std::function<void()>& waitForEnd)
{
    int exitStatus = 0;
    const auto options = ParseCommandLine(std::move(arguments), std::cout, std::cerr, exitStatus);
    if (!options)
        return exitStatus;
    try
    {
        Appliance appliance(*options, std::cout);
        std::cout << "quendra-appliance is a sample server, for trying things out and for tests. It is not for production.\n";
        appliance.Start();
        std::cout << "listening on " << appliance.Url() << std::endl;
        waitForEnd();
        appliance.Stop();
        return 0;
    }
    catch (const std::exception& error)
    {
        std::cerr << "quendra-appliance: " << error.what() << std::endl;
        return 1;
    }
}

} // namespace ApplianceParts
