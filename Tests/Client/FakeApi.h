#pragma once

/// @file
/// A library that does as it is told and writes down what it is asked, and the program run over it.

#include "Attributes.h"
#include "Client/Surroundings.h"
#include "Mapping.h"
#include "NotificationAction.h"

#include "QuendraHttp/QuendraHttp.h"

#include <condition_variable>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

/// What the library answers, and what it was asked. Outlives the instances made for it.
struct Script
{
    std::map<std::string, std::vector<ResultCode>> results; ///< by operation, call by call; then success.
    std::shared_ptr<IServerAttributes> item;                ///< what operations deliver.
    std::vector<std::wstring> children;
    std::wstring policy;
    std::int64_t receivedBytes = 0;
    std::function<void()> interrupt; ///< presses Ctrl-C; there while the program watches for it.
    std::string interruptedIn;       ///< the operation during which Ctrl-C is pressed, at its `interruptedAt`th call.
    std::size_t interruptedAt = 1;

    std::vector<std::string> calls;
    std::mutex lock; // of the calls
    std::condition_variable closed;
    bool isClosed = false;
    std::map<std::string, std::size_t> counts;
};

[[nodiscard]] IQuendraHttpAPI* MakeFakeApi(Script& script, const std::wstring& deviceName);

/// What a run of the program left behind.
struct Ran
{
    int status = 0;
    std::string output;
    std::string errors;
    std::vector<std::string> calls;
};

/// A folder of its own, gone at the end.
class ScratchFolder
{
public:
    ScratchFolder();
    ~ScratchFolder();

    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    [[nodiscard]] std::filesystem::path Path() const { return m_path; }
    [[nodiscard]] std::string File(const std::string& name) const { return (m_path / name).string(); }

    /// Makes a file.
    std::string Make(const std::string& name, const std::string& content) const;

private:
    std::filesystem::path m_path;
};

/// The program with its surroundings, as one user has them from run to run.
class ProgramRunner
{
public:
    Script script;
    std::map<std::string, std::string> environment{{"QUENDRA_SERVER", "http://server"}};
    std::string input;
    bool isTerminal = false;
    ScratchFolder folder;

    [[nodiscard]] Ran operator()(const std::vector<std::string>& arguments);
};
