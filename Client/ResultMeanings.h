#pragma once

/// @file
/// Result codes in words.

#include "QuendraHttp/ResultCodes.h"

#include <string>

struct ServerAnswer;

/// What a code means and, where there is something, what to do about it, in one line without parentheses.
[[nodiscard]] std::string MeaningOf(ResultCode code);

/// What a failed operation is told with: the code's meaning, what the server said beyond it, advice, and what to do next.
/// @param answer  to the operation.
/// @param advice  may be empty.
[[nodiscard]] std::string FailureMeaning(ResultCode code, const ServerAnswer& answer, const std::string& advice = {});

/// Whether a transfer that failed so may go on where it ended: the connection failed, not the server's or this machine's will.
[[nodiscard]] bool IsConnectionFailure(ResultCode code);

/// The code as people look it up: decimal, an HRESULT in hexadecimal.
[[nodiscard]] std::string CodeText(ResultCode code);
