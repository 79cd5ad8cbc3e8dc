#pragma once

/// @file
/// What the server said last, taken from the library's events: the library hands out a result code only.

#include "Eventing/EventSink.h"

#include <cstdint>
#include <string>
#include <thread>

/// The server's answer to the last operation.
struct ServerAnswer
{
    std::uint32_t status = 0; ///< the HTTP status of a refusal; 0 where there was none.
    std::string message;      ///< its own words, printable; empty where the reply had none.
    std::string redirect;     ///< scheme, host and port that it redirects to, or other words for it, printable; else empty.
};

/// Listens to the events of the thread that made it, and remembers what they tell of the last operation on that thread.
class AnswerReader
{
public:
    void Take(const Eventing::Event& event);

    [[nodiscard]] ServerAnswer Answer() const;

private:
    void TakeMessage(std::string_view function, std::string_view message);

    std::thread::id m_thread = std::this_thread::get_id();
    unsigned m_depth = 0; // of traced functions
    std::string m_reply;  // JSON; cut off where it is long
    std::uint32_t m_status = 0;
    std::string m_redirect;
};
