#pragma once

#include <cstdint>

/// The most memory that this process has had in use so far, in bytes.
std::uint64_t PeakMemory();
