#pragma once

/// @file
/// What every command uses: the library's interface, the options and the output streams.

#include "CommandLine.h"
#include "ServerAddress.h"
#include "ServerAnswer.h"

#include <json/json.h>

#include <memory>
#include <optional>
#include <string>

class IQuendraHttpAPI;

class Client
{
public:
    /// @param answers  records the server's answers; both must outlive the client.
    Client(const Options& options, AnswerReader& answers) : m_options(options), m_answers(answers) {}

    /// Creates the library's instance and sets server, device and, for `withToken`, the session.
    /// @throws UsageError where no server is named, OperationFailed, ProgramError
    void Connect(bool withToken);

    /// Whether a server is named, or a session is saved.
    [[nodiscard]] bool KnowsServer() const;
    [[nodiscard]] bool IsConnected() const { return m_api != nullptr; }

    /// The library; valid once `Connect` has returned.
    [[nodiscard]] IQuendraHttpAPI& Api() const { return *m_api; }
    [[nodiscard]] const ServerAddress& Server() const { return m_server; }

    /// The end of a command that the user is advised to run, so that it goes to the same server: " --server URL", or nothing if the server
    /// is the saved session's.
    [[nodiscard]] std::string ServerOption() const;

    /// Whether to show progress: standard error is a terminal, and neither `--quiet` nor `--json` is given.
    [[nodiscard]] bool ShowsProgress() const;

    [[nodiscard]] bool PrintsJson() const { return m_options.json; }

    /// Prints a result: the document with `--json`, else the text, which includes its line ends.
    void Print(const Json::Value& document, const std::string& text) const;

    /// Prints a line for people on standard error.
    void Note(const std::string& line) const;

    /// What the server answered to the last operation.
    [[nodiscard]] ServerAnswer Answer() const { return m_answers.Answer(); }

    [[nodiscard]] AnswerReader& Answers() const { return m_answers; }

    /// Reports the last failed operation, as text and as JSON.
    void ReportFailure(const std::string& operation, ResultCode code, const std::string& advice) const;

private:
    struct ApiDeleter
    {
        void operator()(IQuendraHttpAPI* api) const;
    };

    const Options& m_options;
    AnswerReader& m_answers;
    ServerAddress m_server;
    std::unique_ptr<IQuendraHttpAPI, ApiDeleter> m_api;
};

/// Prints on standard output.
/// @throws ProgramError
void PrintOutput(const std::string& text);

/// Prints a failure on standard output where `--json` asks for it. Operation and code are null where the program itself failed.
void PrintFailure(const Options& options, const std::string& meaning, const Json::Value& operation = {}, const Json::Value& code = {});

/// `{"ok":true}`
[[nodiscard]] Json::Value OkDocument();

/// A text of the library's as a JSON value; null for an empty one.
[[nodiscard]] Json::Value TextOrNull(const std::wstring& text);
