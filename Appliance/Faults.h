#pragma once

/// @file
/// Faults that the server plays in place of, or on the way of, its replies, so that clients can be tried on a broken network.
/// Docs/Faults.md describes the plans that hold them.

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ApplianceParts
{

/// Bytes of a reply, several times. First a wait.
struct FaultPiece
{
    std::chrono::milliseconds wait{0};
    std::string bytes = {};
    std::uint64_t times = 1;
};

/// What happens to the connection after a fault.
enum class FaultEnd
{
    Keep,
    Close,
    Reset,
    Silent ///< stays open until the client ends it; nothing more is read or sent.
};

struct Fault
{
    static constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();

    std::string name;
    std::string method = {}; ///< empty: any.
    std::string path = {};   ///< what the request's path contains.
    double chance = 1;
    std::uint64_t count = kNever; ///< how often it is played, at most.

    bool isAtConnection = false;  ///< before the client has sent anything.
    std::uint64_t reads = kNever; ///< about how many bytes of the request's body are read.
    /// Sent in place of the server's reply: the request has no effect. Nothing: the request is served, and its reply is changed as follows.
    std::optional<std::vector<FaultPiece>> reply = {};

    // What happens to the reply on its way; positions are counted from its first byte.
    std::uint64_t cut = kNever;     ///< bytes that are sent.
    std::uint64_t corrupt = kNever; ///< the position of a byte that is changed.
    std::uint64_t stallAt = kNever; ///< the position at which sending stops for `stall`.
    std::chrono::milliseconds stall{0};
    std::uint64_t blockSize = kNever; ///< bytes that are sent at once, each time after `pause`.
    std::chrono::milliseconds pause{0};

    FaultEnd end = FaultEnd::Keep;
};

/// A connection that was accepted, or a request on it.
struct FaultOccasion
{
    std::string_view method = {}; ///< empty: the connection.
    std::string_view path = {};
};

/// Returns the fault to play; null: none. Called from several threads.
using FaultChooser = std::function<std::shared_ptr<const Fault>(const FaultOccasion&)>;

struct FaultPlan
{
    double chance = 1; ///< for a connection or request to meet one of the faults.
    std::vector<std::shared_ptr<const Fault>> faults;
};

/// @param text  JSON, which may hold comments.
/// @throws std::runtime_error, which names the place, if the text is not a plan.
[[nodiscard]] FaultPlan ReadFaultPlan(const std::string& text);

/// The same for the text in a file.
[[nodiscard]] FaultPlan ReadFaultPlanFile(const std::filesystem::path& path);

/// Chooses from a plan. What the Nth request meets depends on the plan, the seed and N; while faults with a `count` are left, also on the
/// requests before it.
/// @param report  receives a line for each fault that is played.
[[nodiscard]] FaultChooser ChooseFrom(FaultPlan plan, std::uint64_t seed, std::function<void(const std::string& line)> report);

} // namespace ApplianceParts
