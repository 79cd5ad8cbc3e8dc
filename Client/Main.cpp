#include "Program.h"
#include "Surroundings.h"
#include "System.h"
#include "VersionNumberUtil.h"

#include "QuendraHttp/QuendraHttp.h"

#include <exception>
#include <iostream>

int main(int argumentCount, char** arguments)
{
    try
    {
        const System::ConsoleEncoding encoding;
        const Surroundings surroundings{
            .input = std::cin,
            .output = std::cout,
            .errors = std::cerr,
            .inputIsTerminal = System::InputIsTerminal(),
            .errorsAreTerminal = System::ErrorsAreTerminal(),
            .machineName = System::MachineName(),
            .configurationFolder = System::ConfigurationFolder(),
            .libraryFile = System::FileOf(reinterpret_cast<const void*>(&CreateInstance)),
            .environment = System::Environment,
            .askSecretly = System::AskSecretly,
            .terminalColumns = System::TerminalColumns,
            .watchInterrupts = System::WatchInterrupts,
            .programVersion = VersionNumberUtil::GetModuleVersion,
            .systemVersion = VersionNumberUtil::GetOsVersion,
            .initialiseLibrary = Init,
            .exitLibrary = Exit,
            .createInstance = CreateInstance,
        };
        return RunProgram(System::Arguments(argumentCount, arguments), surroundings);
    }
    catch (const std::exception& error)
    {
        std::cerr << "quendra: " << error.what() << std::endl;
        return 1;
    }
}
