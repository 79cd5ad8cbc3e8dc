#pragma once

/// @file
/// Counts what a benchmark program keeps allocated, by replacing its `operator new`.

#include <cstdint>

/// The bytes asked for by `new` and not given back yet.
[[nodiscard]] std::int64_t AllocatedBytes();

/// The most that `AllocatedBytes` was since the last call.
[[nodiscard]] std::int64_t TakePeakBytes();
