#pragma once

/// @file
/// The ways in which a command fails: each exception carries the message for the user.

#include "QuendraHttp/ResultCodes.h"

#include <istream>
#include <stdexcept>
#include <string>
#include <utility>

/// The program's exit statuses.
namespace ExitStatus
{
inline constexpr int Done = 0;
inline constexpr int Failed = 1;
inline constexpr int WrongUsage = 2;
inline constexpr int Interrupted = 130;
} // namespace ExitStatus

/// The command line is invalid; no request was sent.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// The program itself failed, for example to read a local file.
class ProgramError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// An operation of the library gave a result other than 0.
class OperationFailed : public std::exception
{
public:
    /// @param operation  its name in `IQuendraHttpAPI`.
    /// @param advice     what this command adds to the code's meaning; may be empty.
    OperationFailed(std::string operation, ResultCode code, std::string advice = {})
        : m_operation(std::move(operation)), m_code(code), m_advice(std::move(advice))
    {
    }

    [[nodiscard]] const char* what() const noexcept override { return m_operation.c_str(); }
    [[nodiscard]] const std::string& Operation() const noexcept { return m_operation; }
    [[nodiscard]] ResultCode Code() const noexcept { return m_code; }
    [[nodiscard]] const std::string& Advice() const noexcept { return m_advice; }

private:
    std::string m_operation;
    ResultCode m_code;
    std::string m_advice;
};

/// The user pressed Ctrl-C while the program waited; there is nothing to report.
class Interrupted : public std::exception
{
public:
    [[nodiscard]] const char* what() const noexcept override { return "interrupted"; }
};

/// A check failed; the report has all details.
class ChecksFailed : public std::exception
{
public:
    [[nodiscard]] const char* what() const noexcept override { return "not in order"; }
};

/// @throws OperationFailed for a code other than 0.
inline void Check(const char* operation, ResultCode code)
{
    if (code != Result::Success)
        throw OperationFailed(operation, code);
}

/// @param name  what the stream is, for the message.
/// @return what the stream holds.
/// @throws ProgramError if it cannot be read.
inline std::string ReadAll(std::istream& stream, const std::string& name)
{
    std::string text;
    char block[4096];
    while (stream.read(block, sizeof block) || stream.gcount() > 0)
        text.append(block, static_cast<std::size_t>(stream.gcount()));
    if (!stream.eof())
        throw ProgramError(name + " cannot be read");
    return text;
}
