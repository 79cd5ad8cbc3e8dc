#pragma once

/// @file
/// The calls that the library makes to the platform, of which a test lets one fail.

#include <cstdint>
#include <utility>
#include <vector>

/// Calls that are counted.
struct PlatformSteps
{
    std::size_t failing = 0;        ///< which of them fails, from 1; 0: none.
    std::vector<const char*> taken; ///< their names.

    [[nodiscard]] bool HasFailed() const noexcept { return failing != 0 && taken.size() >= failing; }
};

/// Where the calling thread's calls are counted; null: they are not.
extern constinit thread_local PlatformSteps* t_steps;

/// Calls during its life are not counted: they are the test's own.
class Uncounted
{
public:
    Uncounted() noexcept : m_steps(std::exchange(t_steps, nullptr)) {}
    ~Uncounted() { t_steps = m_steps; }

    Uncounted(const Uncounted&) = delete;
    Uncounted& operator=(const Uncounted&) = delete;

private:
    PlatformSteps* const m_steps;
};

/// The last error of a call that fails.
inline constexpr std::uint32_t kPlatformError = 77;

/// Counts a call.
/// @return whether it is to fail; the last error is then set.
bool IsToFail(const char* call) noexcept;
