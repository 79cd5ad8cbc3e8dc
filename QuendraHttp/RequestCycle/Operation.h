#pragma once

/// @file
/// Runs every operation: opens its trace scope and catches its exceptions. Nothing may be thrown across the exported interface; an
/// operation that runs out of memory writes "[EXCEPTION EXIT]" to the trace and returns `Result::Failed`.

#include "Tracing.h"

#include "QuendraHttp/ResultCodes.h"

/// Runs a step that may throw.
template <typename Body> ResultCode RunGuarded(const Body& body) noexcept
{
    try
    {
        return body();
    }
    catch (...)
    {
        return Result::Failed;
    }
}

/// An operation's name in the trace, "CNativeHttp::Operation", and the line that identifies its entry and exit.
struct OperationName
{
    // NOLINTNEXTLINE(google-explicit-constructor): implicit, so that callers can pass a literal.
    constexpr OperationName(const char* operation, int sourceLine = __builtin_LINE()) : function(operation), line(sourceLine) {}

    const char* function;
    int line;
};

/// Runs an operation of the client inside its trace scope.
/// @param body  takes the scope, returns the operation's result. It captures the caller's shared pointers by value, which keeps the
///              objects alive during the call: a callback may reset the caller's own pointers.
template <typename Body> ResultCode RunOperation(OperationName name, const Body& body) noexcept
{
    return RunGuarded([&] {
        const FunctionTraceScope trace(name.function, Unit::NativeHttp, name.line);
        return body(trace);
    });
}
