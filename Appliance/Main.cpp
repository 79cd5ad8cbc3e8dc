// quendra-appliance, the program: serves until it is told to stop.

#include "Appliance.h"
#include "ProgramArguments.h"

#include <boost/asio/io_context.hpp>
#include <boost/asio/signal_set.hpp>

#include <csignal>
#include <exception>
#include <iostream>

using namespace ApplianceParts;

int main(int count, char** arguments)
{
    try
    {
        ReserveStandardStreams();
        int exitStatus = 0;
        const auto options = ParseCommandLine(ProgramArguments(count, arguments), std::cout, std::cerr, exitStatus);
        if (!options)
            return exitStatus;
        boost::asio::io_context context;
        boost::asio::signal_set requestsToEnd(context, SIGINT, SIGTERM);
        requestsToEnd.async_wait([](const auto&, int) {});
        Appliance appliance(*options, std::cout);
        std::cout << "quendra-appliance is a sample server, for trying things out and for tests. It is not for production.\n";
        appliance.Start();
        std::cout << "listening on " << appliance.Url() << std::endl;
        context.run();
        return 0;
    }
    catch (const std::exception& error)
    {
        std::cerr << "quendra-appliance: " << error.what() << std::endl;
        return 1;
    }
}
