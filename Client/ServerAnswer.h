#pragma once

/// @file
/// The server's last answer, from the library's events: the library returns only a result code.

#include "Eventing/EventSink.h"

#include <cstdint>
#include <string>
#include <thread>

/// The server's answer to the last operation.
struct ServerAnswer
{
    std::uint32_t status = 0; ///< the HTTP status; 0 if no reply came.
    std::string message;      ///< the server's text, printable; empty if the reply had none.
    std::string redirect;     ///< scheme, host and port that it redirects to, or a description of the target, printable; else empty.
};

/// Receives the events of the thread that created it, and keeps what they say about that thread's last operation.
class AnswerReader
{
public:
    void Take(const Eventing::Event& event);

    [[nodiscard]] ServerAnswer Answer() const;

private:
    void TakeMessage(std::string_view function, std::string_view message);

    std::thread::id m_thread = std::this_thread::get_id();
    unsigned m_depth = 0; // of traced functions
    std::string m_reply;  // JSON; cut off at a limit
    std::uint32_t m_status = 0;
    std::string m_redirect;
};
