#include "Multipart.h"

#include "Form.h"

#include <algorithm>
#include <cctype>
#include <utility>

namespace ApplianceParts
{

namespace
{

constexpr std::size_t kLargestHead = 16 * 1024;
constexpr std::size_t kLargestField = 64 * 1024;
constexpr std::size_t kMostParts = 100;
constexpr std::size_t kLongestBoundary = 200;
constexpr std::string_view kSpaces = " \t\r\n";

ApiError Malformed(const std::string& what)
{
    return {400, ErrorId::Malformed, "the multipart body is malformed: " + what};
}

bool EqualsIgnoringCase(std::string_view left, std::string_view right)
{
    const auto isSame = [](char a, char b) {
        return std::tolower(static_cast<unsigned char>(a)) == std::tolower(static_cast<unsigned char>(b));
    };
    return left.size() == right.size() && std::equal(left.begin(), left.end(), right.begin(), isSame);
}

std::string_view Trimmed(std::string_view text)
{
    text.remove_prefix(std::min(text.size(), text.find_first_not_of(kSpaces)));
    const auto last = text.find_last_not_of(kSpaces);
    return text.substr(0, last == std::string_view::npos ? 0 : last + 1);
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
        const auto parameter = Trimmed(value.substr(start, index - start));
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

class UploadSink final : public IMultipartSink
{
public:
    explicit UploadSink(const std::function<std::ostream&(const Fields&)>& openFile) : m_openFile(openFile) {}

    void Field(const std::string& name, const std::string& value) override { m_upload.fields.emplace(name, value); }

    void FileBegin() override
    {
        m_output = &m_openFile(m_upload.fields);
        m_upload.hasFile = true;
    }

    void FileData(std::string_view data) override
    {
        m_output->write(data.data(), static_cast<std::streamsize>(data.size()));
        if (!*m_output)
            throw ApiError(507, ErrorId::StorageFailed, "the file cannot be written");
    }

    Upload Finish()
    {
        if (m_output != nullptr && !m_output->flush())
            throw ApiError(507, ErrorId::StorageFailed, "the file cannot be written");
        return std::move(m_upload);
    }

private:
    const std::function<std::ostream&(const Fields&)>& m_openFile;
    std::ostream* m_output = nullptr;
    Upload m_upload;
};

} // namespace

MultipartParser::MultipartParser(const std::string& boundary, IMultipartSink& sink)
    : m_delimiter("\r\n--" + boundary), m_sink(sink), m_pending("\r\n") // the first boundary has no line before it
{
}

void MultipartParser::Take(std::string_view piece)
{
    if (m_state == State::Closed)
        return;
    m_pending.erase(0, m_position);
    m_position = 0;
    m_pending += piece;
    bool goesOn = true;
    while (goesOn)
    {
        switch (m_state)
        {
        case State::Data:
            goesOn = TakeData();
            break;
        case State::BoundaryEnd:
            goesOn = TakeBoundaryEnd();
            break;
        case State::Head:
            goesOn = TakeHead();
            break;
        case State::Closed:
            goesOn = false;
            break;
        }
    }
}

void MultipartParser::Finish() const
{
    if (m_state != State::Closed)
        throw Malformed("its closing boundary is missing");
}

bool MultipartParser::TakeData()
{
    const auto rest = std::string_view(m_pending).substr(m_position);
    const auto found = rest.find(m_delimiter);
    if (found != std::string_view::npos)
    {
        Deliver(rest.substr(0, found));
        EndPart();
        m_position += found + m_delimiter.size();
        m_state = State::BoundaryEnd;
        return true;
    }
    const auto safe = rest.size() - std::min(rest.size(), m_delimiter.size() - 1);
    Deliver(rest.substr(0, safe));
    m_position += safe;
    return false;
}

bool MultipartParser::TakeBoundaryEnd()
{
    const auto rest = std::string_view(m_pending).substr(m_position);
    if (rest.size() < 2)
        return false;
    if (!rest.starts_with("--") && !rest.starts_with("\r\n"))
        throw Malformed("a boundary is followed by something else");
    m_state = rest.starts_with("--") ? State::Closed : State::Head;
    // The line end stays: it begins the empty line where a part's head is empty.
    return true;
}

bool MultipartParser::TakeHead()
{
    const auto rest = std::string_view(m_pending).substr(m_position);
    const auto end = rest.find("\r\n\r\n");
    if (std::min(rest.size(), end) > kLargestHead)
        throw Malformed("a part's head is too large");
    if (end == std::string_view::npos)
        return false;

    const auto disposition = HeaderOf(rest.substr(2, std::max<std::size_t>(end, 2) - 2), "Content-Disposition");
    const auto name = disposition ? Parameter(*disposition, "name") : std::nullopt;
    if (!name)
        throw Malformed("a part has no name");
    if (++m_partCount > kMostParts)
        throw Malformed("it has too many parts");
    const bool isFile = Parameter(*disposition, "filename").has_value();
    if (isFile && std::exchange(m_hasFile, true))
        throw Malformed("it has more than one file");

    m_name = *name;
    m_value.clear();
    m_part = isFile ? Part::File : Part::Field;
    if (isFile)
        m_sink.FileBegin();
    m_position += end + 4;
    m_state = State::Data;
    return true;
}

void MultipartParser::Deliver(std::string_view data)
{
    if (m_part == Part::File && !data.empty())
        m_sink.FileData(data);
    if (m_part != Part::Field)
        return;
    if (m_value.size() + data.size() > kLargestField)
        throw Malformed("a field is too large");
    m_value += data;
}

void MultipartParser::EndPart()
{
    if (m_part != Part::Field)
        return;
    if (!IsValidUtf8(m_name) || !IsValidUtf8(m_value))
        throw Malformed("a field is not UTF-8");
    m_sink.Field(m_name, m_value);
}

std::optional<std::string> BoundaryOf(const std::string& contentType)
{
    const auto type = std::string_view(contentType).substr(0, contentType.find(';'));
    if (!EqualsIgnoringCase(Trimmed(type), "multipart/form-data"))
        return std::nullopt;
    auto boundary = Parameter(contentType, "boundary");
    return boundary && !boundary->empty() && boundary->size() <= kLongestBoundary ? boundary : std::nullopt;
}

bool IsMultipart(const Request& request)
{
    const auto type = request.header("Content-Type");
    return type && EqualsIgnoringCase(Trimmed(type->substr(0, type->find(';'))), "multipart/form-data");
}

Upload ReadUpload(const Request& request, const std::function<std::ostream&(const Fields&)>& openFile)
{
    const auto boundary = BoundaryOf(request.header("Content-Type").value_or(""));
    if (!boundary)
        throw ApiError(400, ErrorId::Malformed, "the body is not multipart/form-data with a boundary");
    UploadSink sink(openFile);
    MultipartParser parser(*boundary, sink);
    request.readBody([&parser](std::string_view piece) { parser.Take(piece); });
    parser.Finish();
    return sink.Finish();
}

} // namespace ApplianceParts
