#pragma once

/// @file
/// Puts right the line ends of a request's head before the HTTP library reads it.

#include <cstddef>
#include <string>

namespace ApplianceParts
{

/// Clients exist that end a header's value with a line feed of its own ("...boundary=\"B\"\n\r\n"). Servers in the field take it
/// for a part of that line's end; the HTTP library would take it for the end of the head. So, within the head, a lone line feed
/// followed by CR LF becomes nothing, and any other lone line feed becomes CR LF.
///
///     Text --\r--> AfterCr --\n--> (line ends; empty: head ends) --> Text
///     Text --\n--> AfterLoneLf --\r--> AfterLoneLfCr --\n--> (line ends) --> Text
class HeaderMender
{
public:
    /// Begins a new head.
    void Reset();

    /// Whether the head's last byte has been taken: what follows is the body's, and nobody's business here.
    [[nodiscard]] bool IsComplete() const { return m_state == State::Complete; }

    /// Takes one byte of the head and appends what it becomes.
    void Take(char byte, std::string& output);

    /// How many bytes the head has had so far.
    [[nodiscard]] std::size_t Size() const { return m_size; }

private:
    enum class State
    {
        Text,
        AfterCr,
        AfterLoneLf,
        AfterLoneLfCr,
        Complete
    };

    void TakeText(char byte, std::string& output);
    void EndLine(std::string& output);

    State m_state = State::Text;
    std::size_t m_size = 0;
    std::size_t m_lineLength = 0;
    bool m_hasRequestLine = false;
};

} // namespace ApplianceParts
