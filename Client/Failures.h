#pragma once

/// @file
/// How a command ends other than well: each exception carries what the user is told.

#include "QuendraHttp/ResultCodes.h"

#include <stdexcept>
#include <string>
#include <utility>

/// How the program ends.
namespace ExitStatus
{
inline constexpr int Done = 0;
inline constexpr int Failed = 1;
inline constexpr int WrongUsage = 2;
inline constexpr int Interrupted = 130;
} // namespace ExitStatus

/// The command line makes no sense; nothing was asked of the server.
class UsageError : public std::runtime_error
{
public:
    using std::runtime_error::runtime_error;
};

/// Something of the program's own went wrong, such as reading a local file.
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
    /// @param advice     what this command knows to say beyond the code's meaning; may be empty.
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

/// What was looked at is not in order; the report says it all.
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
