#include "Multipart.h"

#include <algorithm>
#include <fstream>
#include <string>
#include <utility>

namespace ApplianceParts
{

namespace
{

constexpr std::size_t kLargestHead = 16 * 1024;
constexpr std::size_t kLargestField = 64 * 1024;
constexpr std::size_t kMostParts = 100;
constexpr std::size_t kLongestBoundary = 200;

ApiError MalformedBody(const std::string& what)
{
    return Malformed("the multipart body is malformed: " + what);
}

bool EqualsIgnoringCase(std::string_view left, std::string_view right)
{
    return LowerAscii(left) == LowerAscii(right);
}

std::string_view Trimmed(std::string_view text)
{
    constexpr std::string_view kSpaces = " \t\r\n";
    text.remove_prefix(std::min(text.size(), text.find_first_not_of(kSpaces)));
    return text.substr(0, text.find_last_not_of(kSpaces) + 1);
}

// A parameter of a header's value: `; name=value` or `; name="value"`.
std::optional<std::string> Parameter(std::string_view value, std::string_view name)
{
    bool isQuoted = false;
    std::size_t start = 0;
    for (std::size_t index = 0; index <= value.size(); ++index)
    {
        if (index < value.size() && value[index] == '"')
            isQuoted = !isQuoted;
        if (index < value.size() && (isQuoted || value[index] != ';'))
            continue;
        const auto parameter = value.substr(start, index - start);
        start = index + 1;
        const auto equals = parameter.find('=');
        if (equals == std::string_view::npos || !EqualsIgnoringCase(Trimmed(parameter.substr(0, equals)), name))
            continue;
        auto text = Trimmed(parameter.substr(equals + 1));
        if (text.size() >= 2 && text.front() == '"' && text.back() == '"')
            text = text.substr(1, text.size() - 2);
        return std::string(text);
    }
    return std::nullopt;
}

// The value of a header in a part's head.
std::optional<std::string> HeaderOf(std::string_view head, std::string_view name)
{
    while (!head.empty())
    {
        const auto line = head.substr(0, head.find("\r\n"));
        head.remove_prefix(std::min(head.size(), line.size() + 2));
        const auto colon = line.find(':');
        if (colon != std::string_view::npos && EqualsIgnoringCase(Trimmed(line.substr(0, colon)), name))
            return std::string(Trimmed(line.substr(colon + 1)));
    }
    return std::nullopt;
}

// Gets the body in pieces of any size. Keeps back only bytes of the file that may be part of a boundary.
//
//     Data (before the first boundary: skipped) --boundary--> BoundaryEnd --CR LF--> Head --empty line--> Data ...
//                                                             BoundaryEnd --"--"--> Closed (what follows is skipped)
class UploadParser
{
public:
    UploadParser(const std::string& boundary, std::filesystem::path file, std::ios::openmode mode)
        : m_delimiter("\r\n--" + boundary), m_file(std::move(file)), m_mode(mode)
    {
    }

    void Take(std::string_view piece)
    {
        m_pending += piece;
        while (Step())
            ;
    }

    Upload Finish()
    {
        if (m_state != State::Closed)
            throw MalformedBody("its closing boundary is missing");
        m_output.close();
        CheckOutput();
        return std::move(m_upload);
    }

private:
    enum class State
    {
        Data,
        BoundaryEnd,
        Head,
        Closed
    };

    enum class Part
    {
        Preamble,
        Field,
        File
    };

    // Returns whether the received bytes may allow another step.
    bool Step()
    {
        switch (m_state)
        {
        case State::Data:
            return TakeData();
        case State::BoundaryEnd:
            return TakeBoundaryEnd();
        case State::Head:
            return TakeHead();
        case State::Closed:
            m_pending.clear();
        }
        return false;
    }

    bool TakeData()
    {
        const auto found = m_pending.find(m_delimiter);
        const bool isEnd = found != std::string::npos;
        const auto size = isEnd ? found : m_pending.size() - std::min(m_pending.size(), m_delimiter.size() - 1);
        Deliver(std::string_view(m_pending).substr(0, size));
        m_pending.erase(0, isEnd ? size + m_delimiter.size() : size);
        if (isEnd && m_part == Part::Field)
        {
            if (!IsValidUtf8(m_name) || !IsValidUtf8(m_value))
                throw MalformedBody("a field is not UTF-8");
            m_upload.fields.emplace(m_name, m_value);
        }
        if (isEnd)
            m_state = State::BoundaryEnd;
        return isEnd;
    }

    bool TakeBoundaryEnd()
    {
        if (m_pending.size() < 2)
            return false;
        const bool isClosing = m_pending.starts_with("--");
        if (!isClosing && !m_pending.starts_with("\r\n"))
            throw MalformedBody("a boundary is followed by something else");
        // Keep the line end: if a part's head is empty, the empty line follows at once.
        m_state = isClosing ? State::Closed : State::Head;
        return true;
    }

    bool TakeHead()
    {
        const auto end = m_pending.find("\r\n\r\n");
        if (std::min(m_pending.size(), end) > kLargestHead)
            throw MalformedBody("a part's head is too large");
        if (end == std::string::npos)
            return false;
        const auto disposition = HeaderOf(std::string_view(m_pending).substr(0, end), "Content-Disposition");
        const auto name = disposition ? Parameter(*disposition, "name") : std::nullopt;
        if (!name)
            throw MalformedBody("a part has no name");
        if (++m_partCount > kMostParts)
            throw MalformedBody("it has too many parts");
        m_part = Parameter(*disposition, "filename") ? Part::File : Part::Field;
        if (m_part == Part::File)
        {
            if (std::exchange(m_upload.hasFile, true))
                throw MalformedBody("it has more than one file");
            m_output.open(m_file, std::ios::out | std::ios::binary | m_mode);
            CheckOutput();
        }
        m_name = *name;
        m_value.clear();
        m_pending.erase(0, end + 4);
        m_state = State::Data;
        return true;
    }

    void Deliver(std::string_view data)
    {
        if (m_part == Part::File)
        {
            m_output.write(data.data(), static_cast<std::streamsize>(data.size()));
            CheckOutput();
        }
        if (m_part != Part::Field)
            return;
        if (m_value.size() + data.size() > kLargestField)
            throw MalformedBody("a field is too large");
        m_value += data;
    }

    void CheckOutput() const
    {
        if (m_upload.hasFile && !m_output)
            throw ApiError(507, ErrorId::StorageFailed, "the file cannot be written");
    }

    std::string m_delimiter;
    std::filesystem::path m_file;
    std::ios::openmode m_mode;
    std::ofstream m_output;
    Upload m_upload;
    State m_state = State::Data;
    Part m_part = Part::Preamble;
    std::string m_pending = "\r\n"; ///< received and not yet parsed; the first boundary has no line before it.
    std::string m_name;
    std::string m_value;
    std::size_t m_partCount = 0;
};

} // namespace

bool IsMultipart(const Request& request)
{
    const auto type = request.header("Content-Type").value_or("");
    return EqualsIgnoringCase(Trimmed(std::string_view(type).substr(0, type.find(';'))), "multipart/form-data");
}

Upload ReadUpload(const Request& request, const std::filesystem::path& file, std::ios::openmode mode)
{
    const auto boundary = Parameter(request.header("Content-Type").value_or(""), "boundary");
    if (!IsMultipart(request) || !boundary || boundary->empty() || boundary->size() > kLongestBoundary)
        throw Malformed("the body is not multipart/form-data with a boundary");
    UploadParser parser(*boundary, file, mode);
    request.readBody([&parser](std::string_view piece) { parser.Take(piece); });
    return parser.Finish();
}

} // namespace ApplianceParts
