#pragma once

/// @file
/// The program's environment. `Main.cpp` supplies the real one; tests supply their own.

#include "System.h"

#include "QuendraHttp/Types.h"

#include <cstdint>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>

class IQuendraHttpAPI;

struct Surroundings
{
    std::istream& input;
    std::ostream& output;
    std::ostream& errors;
    bool inputIsTerminal = false;
    bool errorsAreTerminal = false;
    std::wstring machineName;
    std::filesystem::path configurationFolder;
    std::string libraryFile; ///< where the library was loaded from.

    std::function<std::optional<std::string>(const std::string& name)> environment;
    std::function<std::optional<std::string>(const std::string& prompt)> askSecretly;
    std::function<unsigned()> terminalColumns;
    std::function<std::unique_ptr<System::InterruptWatch>(std::function<void()> interrupted)> watchInterrupts;
    std::function<VersionNumber()> programVersion;
    std::function<VersionNumber()> systemVersion;

    // The library's exports.
    std::function<std::int32_t(std::uint64_t provider)> initialiseLibrary;
    std::function<void()> exitLibrary;
    std::function<IQuendraHttpAPI*(const std::wstring& deviceName)> createInstance;
};
