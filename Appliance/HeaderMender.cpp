#include "HeaderMender.h"

namespace ApplianceParts
{

void HeaderMender::Reset()
{
    *this = HeaderMender();
}

void HeaderMender::Take(char byte, std::string& output)
{
    ++m_size;
    switch (m_state)
    {
    case State::Text:
        TakeText(byte, output);
        break;
    case State::AfterCr:
        m_state = State::Text;
        if (byte == '\n')
        {
            EndLine(output);
        }
        else
        {
            output += '\r';
            ++m_lineLength;
            TakeText(byte, output);
        }
        break;
    case State::AfterLoneLf:
        if (byte == '\r')
        {
            m_state = State::AfterLoneLfCr;
            break;
        }
        m_state = State::Text;
        EndLine(output);
        if (!IsComplete())
            TakeText(byte, output);
        break;
    case State::AfterLoneLfCr:
        m_state = State::Text;
        EndLine(output);
        if (byte != '\n')
            TakeText(byte, output);
        break;
    case State::Complete:
        output += byte;
        break;
    }
}

void HeaderMender::TakeText(char byte, std::string& output)
{
    if (byte == '\r')
    {
        m_state = State::AfterCr;
    }
    else if (byte == '\n' && m_lineLength > 0)
    {
        m_state = State::AfterLoneLf;
    }
    else if (byte == '\n')
    {
        EndLine(output);
    }
    else
    {
        output += byte;
        ++m_lineLength;
    }
}

void HeaderMender::EndLine(std::string& output)
{
    output += "\r\n";
    // An empty line before the request line is noise between two requests, not the end of a head.
    if (m_lineLength == 0 && m_hasRequestLine)
        m_state = State::Complete;
    m_hasRequestLine = m_hasRequestLine || m_lineLength > 0;
    m_lineLength = 0;
}

} // namespace ApplianceParts
