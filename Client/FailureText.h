#pragma once

/// @file
/// The texts with which the program reports failures.

#include "QuendraHttp/ResultCodes.h"

#include <cstdint>
#include <string>

struct ServerAnswer;

/// The text for a failed operation: the code's meaning, the server's message, advice, and what to do next.
/// @param answer        the server's answer to the operation.
/// @param advice        may be empty.
/// @param serverOption  as `Client::ServerOption` gives it.
[[nodiscard]] std::string FailureMeaning(ResultCode code, const ServerAnswer& answer, const std::string& advice = {},
                                         const std::string& serverOption = {});

/// `HTTP 503, the server is not available now`
[[nodiscard]] std::string StatusText(std::uint32_t status);

/// Whether a failed transfer may be resumed: the connection failed, and neither the server nor this machine refused.
[[nodiscard]] bool IsConnectionFailure(ResultCode code);

/// The code as people look it up: decimal, an HRESULT in hexadecimal.
[[nodiscard]] std::string CodeText(ResultCode code);
