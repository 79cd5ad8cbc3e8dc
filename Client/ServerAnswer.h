#pragma once

/// @file
/// The server's last answer, from the library's events: the library returns only a result code.

#include "Eventing/EventSink.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

/// The server's answer to the last operation.
struct ServerAnswer
{
    std::uint32_t status = 0; ///< the HTTP status; 0 if no reply came.
    std::string message{};    ///< the server's text, printable; empty if the reply had none.
    std::string redirect{};   ///< scheme, host and port that it redirects to, or a description of the target, printable; else empty.
    std::string reply{};      ///< JSON, cut off at a limit; empty if the reply was none.
};

/// The text behind a prefix; nothing for a text that begins otherwise.
[[nodiscard]] std::optional<std::string_view> TextAfter(std::string_view prefix, std::string_view text);

/// The number that a text begins with; 0 if there is none.
[[nodiscard]] std::uint32_t LeadingNumber(std::string_view text);

/// Receives the events of the thread that created it, and of all threads what WinHTTP notifies of. Keeps what they say about that thread's
/// last operation.
class AnswerReader
{
public:
    void Take(const Eventing::Event& event);

    [[nodiscard]] ServerAnswer Answer() const;

    /// @param watcher  is called for each message, after the reader has taken it; may be empty.
    void Watch(std::function<void(std::string_view message)> watcher) { m_watcher = std::move(watcher); }

private:
    void TakeMessage(std::string_view function, std::string_view message);

    std::function<void(std::string_view)> m_watcher;
    std::thread::id m_thread = std::this_thread::get_id();
    unsigned m_depth = 0; // of traced functions
    std::string m_reply;  // JSON; cut off at a limit
    std::uint32_t m_status = 0;
    std::string m_redirect;
};
