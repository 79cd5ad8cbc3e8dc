#include "Progress.h"

#include "Client.h"
#include "System.h"
#include "TerminalText.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <exception>
#include <iostream>

namespace
{

constexpr auto kRedrawInterval = std::chrono::milliseconds(100);
constexpr auto kRateWindow = std::chrono::seconds(5);
constexpr auto kSampleInterval = std::chrono::milliseconds(100);

constexpr std::size_t kUsualColumns = 80;
constexpr std::size_t kLabelColumns = 24;
constexpr std::size_t kShortestLabel = 6;
constexpr std::size_t kShortestBar = 10;
constexpr std::size_t kLongestBar = 42;
constexpr std::size_t kSizeColumns = 9;  // 999.9 MiB
constexpr std::size_t kRateColumns = 11; // 999.9 MiB/s
constexpr std::size_t kTimeColumns = 10; // 59:59 left
constexpr double kLongestWait = 100.0 * 3600;

std::string AlignRight(const std::string& text, std::size_t columns)
{
    return std::string(columns - std::min(columns, text.size()), ' ') + text;
}

std::string Percent(std::uint64_t done, std::uint64_t total)
{
    const double part = total == 0 ? 1 : std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
    // 100% only at the end.
    const int percent = done >= total ? 100 : std::min(99, static_cast<int>(part * 100));
    return std::string(percent < 10 ? "  " : percent < 100 ? " " : "") + std::to_string(percent) + "%";
}

std::string Bar(std::uint64_t done, std::uint64_t total, std::size_t columns)
{
    const std::size_t inside = columns - 2;
    const double part = total == 0 ? 1 : std::min(1.0, static_cast<double>(done) / static_cast<double>(total));
    const auto filled = static_cast<std::size_t>(part * static_cast<double>(inside));
    std::string bar(filled, '=');
    if (filled < inside)
        bar += '>';
    bar.resize(inside, ' ');
    return "[" + bar + "]";
}

std::string TimeLeft(const ProgressState& state)
{
    if (!state.total || state.bytesPerSecond <= 0 || state.done >= *state.total)
        return {};
    const double seconds = std::ceil(static_cast<double>(*state.total - state.done) / state.bytesPerSecond);
    return seconds < kLongestWait ? DurationText(static_cast<std::uint64_t>(seconds)) + " left" : std::string();
}

// The columns of a line, allotted piece by piece, each piece with a space before it.
class Room
{
public:
    explicit Room(std::size_t columns) : m_left(columns) {}

    // Returns the piece if it fits, else nothing.
    std::string Take(const std::string& piece, std::size_t gap)
    {
        const std::size_t width = DisplayWidth(piece) + gap;
        if (width > m_left)
            return {};
        m_left -= width;
        return std::string(gap, ' ') + piece;
    }

    [[nodiscard]] std::size_t Left() const { return m_left; }

private:
    std::size_t m_left;
};

} // namespace

std::string RenderProgress(const ProgressState& state, std::size_t columns)
{
    const std::string doneText = BinarySize(state.done);
    const std::string rateText = state.bytesPerSecond > 0 ? BinarySize(static_cast<std::uint64_t>(state.bytesPerSecond)) + "/s" : "";
    Room room(columns);
    // The most important pieces come first. Fixed widths keep the bar from moving.
    const std::string first = room.Take(state.total ? Percent(state.done, *state.total) : AlignRight(doneText, kSizeColumns), 0);
    const std::string left = state.total ? room.Take(AlignRight(TimeLeft(state), kTimeColumns), 2) : "";
    const std::string rate = room.Take(AlignRight(rateText, kRateColumns), 2);
    const std::string sizes = state.total ? room.Take(AlignRight(doneText, kSizeColumns) + " of " + BinarySize(*state.total), 2) : "";

    // The bar takes precedence over the end of a long name.
    const std::size_t barRoom = state.total ? kShortestBar + 1 : 0;
    const std::size_t reserved = room.Left() >= barRoom + kShortestLabel + 2 ? barRoom + 2 : 2;
    std::string label;
    if (room.Left() >= reserved + kShortestLabel)
    {
        label = FitTo(state.label, std::min(kLabelColumns, room.Left() - reserved));
        static_cast<void>(room.Take(label, 2));
        label += "  ";
    }
    std::string bar;
    if (state.total && room.Left() >= barRoom)
        bar = " " + Bar(state.done, *state.total, std::min(kLongestBar, room.Left() - 1));
    std::string line = label + first + bar + sizes + rate + left;
    line.erase(line.find_last_not_of(' ') + 1);
    return line;
}

void RateMeter::Add(Clock::time_point now, std::uint64_t position)
{
    // Move the newest sample until it is far enough from the one before it.
    if (m_samples.size() > 1 && now - m_samples[m_samples.size() - 2].time < kSampleInterval)
        m_samples.back() = {now, position};
    else
        m_samples.push_back({now, position});
    while (m_samples.size() > 2 && now - m_samples[1].time >= kRateWindow)
        m_samples.pop_front();
}

double RateMeter::BytesPerSecond() const
{
    if (m_samples.size() < 2)
        return 0;
    const std::chrono::duration<double> time = m_samples.back().time - m_samples.front().time;
    const double bytes = static_cast<double>(m_samples.back().position) - static_cast<double>(m_samples.front().position);
    return time.count() > 0 && bytes > 0 ? bytes / time.count() : 0;
}

Progress::Progress(const Client& client, const std::wstring& label, std::optional<std::uint64_t> total, std::uint64_t start)
    : m_state{Printable(label), start, total, 0}, m_isShown(client.ShowsProgress())
{
    m_rate.Add(RateMeter::Clock::now(), start);
}

Progress::~Progress()
{
    Finish();
}

void Progress::OnBlock(std::uint64_t /*blockSize*/, std::uint64_t position)
{
    m_state.done = position;
    if (!m_isShown)
        return;
    try
    {
        const auto now = RateMeter::Clock::now();
        m_rate.Add(now, position);
        if (!m_lastDrawn || now - *m_lastDrawn >= kRedrawInterval)
            Draw(now);
    }
    catch (const std::exception&)
    {
        m_isShown = false; // a failure to draw must not fail the transfer
    }
}

void Progress::Finish() noexcept
{
    if (!m_isShown || !m_lastDrawn)
        return;
    try
    {
        Draw(RateMeter::Clock::now());
        std::cerr << '\n' << std::flush;
    }
    catch (const std::exception&)
    {
        // Standard error failed: nothing can be reported.
    }
    m_isShown = false;
}

void Progress::Draw(RateMeter::Clock::time_point now)
{
    m_state.bytesPerSecond = m_rate.BytesPerSecond();
    const unsigned columns = System::TerminalColumns();
    // Leave the last column free: some terminals wrap the line when it is written.
    const std::string line = RenderProgress(m_state, (columns > 0 ? columns : kUsualColumns) - 1);
    const std::size_t width = DisplayWidth(line);
    std::cerr << '\r' << line << std::string(m_lastWidth - std::min(width, m_lastWidth), ' ') << std::flush;
    m_lastWidth = width;
    m_lastDrawn = now;
}
