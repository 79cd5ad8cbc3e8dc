#pragma once

/// @file
/// The progress of a transfer.

#include "QuendraHttp/Types.h"

#include <chrono>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>

class Client;

/// The content of a progress line.
struct ProgressState
{
    std::string label; ///< printable.
    std::uint64_t done = 0;
    std::optional<std::uint64_t> total;
    double bytesPerSecond = 0; ///< 0 if not known yet.
};

/// One line of at most the given columns: what does not fit is omitted, the least important pieces first.
///
///     film.mkv   45% [=========>           ]    1.2 GiB of 2.6 GiB   35.1 MiB/s   0:41 left
[[nodiscard]] std::string RenderProgress(const ProgressState& state, std::size_t columns);

/// Bytes a second over the last few seconds.
class RateMeter
{
public:
    using Clock = std::chrono::steady_clock;

    void Add(Clock::time_point now, std::uint64_t position);
    [[nodiscard]] double BytesPerSecond() const;

private:
    struct Sample
    {
        Clock::time_point time;
        std::uint64_t position;
    };

    std::deque<Sample> m_samples;
};

/// Follows one transfer and draws a progress bar if the user can see it. The library calls it on the thread that runs the operation.
class Progress final : public IProgressCallback
{
public:
    /// @param label  the file's name.
    /// @param start  the position that the transfer starts at.
    Progress(const Client& client, const std::wstring& label, std::optional<std::uint64_t> total, std::uint64_t start = 0);
    ~Progress() override;

    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;

    void OnBlock(std::uint64_t blockSize, std::uint64_t position) override;

    /// As the library reported it last.
    [[nodiscard]] std::uint64_t Position() const { return m_state.done; }

    /// Draws the last state and ends the bar's line.
    void Finish() noexcept;

private:
    void Draw(RateMeter::Clock::time_point now);

    ProgressState m_state;
    bool m_isShown;
    RateMeter m_rate;
    std::optional<RateMeter::Clock::time_point> m_lastDrawn;
    std::size_t m_lastWidth = 0;
};
