#include "Program.h"
#include "ProgramArguments.h"
#include "System.h"

#include <exception>
#include <iostream>

int main(int argumentCount, char** arguments)
{
    try
    {
        ReserveStandardStreams();
        const System::ConsoleEncoding encoding;
        return RunProgram(ProgramArguments(argumentCount, arguments));
    }
    catch (const std::exception& error)
    {
        std::cerr << "quendra: " << error.what() << std::endl;
        return 1;
    }
}
