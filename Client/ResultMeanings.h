#pragma once

/// @file
/// Result codes in words.

#include "QuendraHttp/ResultCodes.h"

#include <string>

/// What a code means and, where there is something, what to do about it, in one line without parentheses.
[[nodiscard]] std::string MeaningOf(ResultCode code);

/// The code as people look it up: decimal, an HRESULT in hexadecimal.
[[nodiscard]] std::string CodeText(ResultCode code);
