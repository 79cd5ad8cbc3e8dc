// quendra-appliance, the program: serves until it is told to stop.

#include "Appliance.h"
#include "Options.h"
#include "System.h"

#include <exception>
#include <iostream>

using namespace ApplianceParts;

int main(int count, char** arguments)
{
    try
    {
        System::PrepareEnd();
        int exitStatus = 0;
        const auto options = ParseCommandLine(System::Arguments(count, arguments), std::cout, std::cerr, exitStatus);
        if (!options)
            return exitStatus;
        Appliance appliance(*options, std::cout);
        std::cout << "quendra-appliance is a sample server, for trying things out and for tests. It is not for production.\n";
        appliance.Start();
        std::cout << "listening on " << appliance.Url() << std::endl;
        System::WaitForEnd();
        appliance.Stop();
        return 0;
    }
    catch (const std::exception& error)
    {
        std::cerr << "quendra-appliance: " << error.what() << std::endl;
        return 1;
    }
}
