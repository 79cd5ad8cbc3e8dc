#include "ProgramArguments.h"

#include "TextConversion.h"

#include "Platform/Platform.h"

#include <memory>
#include <shellapi.h>

std::vector<std::string> ProgramArguments(int /*count*/, const char* const* /*values*/)
{
    int count = 0;
    const std::unique_ptr<wchar_t*, decltype(&LocalFree)> wide(CommandLineToArgvW(GetCommandLineW(), &count), &LocalFree);
    std::vector<std::string> arguments;
    for (int index = 1; wide != nullptr && index < count; ++index)
        arguments.push_back(ToNarrow(wide.get()[index]));
    return arguments;
}

// A stream without a handle takes none of the program's later ones.
void ReserveStandardStreams()
{
}
