// Bodies of multipart/form-data.

#include "Http.h"
#include "TextComparison.h"
#include "TextConversion.h"

#include <algorithm>
#include <fstream>
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

// Splits a body, which comes in pieces of any size, at delimiters.
class BodySplitter
{
public:
    explicit BodySplitter(const Request& request) : m_request(request) {}

    // Passes on everything up to the delimiter, and skips that. Keeps back only bytes that may be part of it.
    template <typename Receiver> void ReadTo(const std::string& delimiter, Receiver receiver)
    {
        auto found = m_pending.find(delimiter);
        for (; found == std::string::npos; found = m_pending.find(delimiter))
        {
            const auto size = m_pending.size() - std::min(m_pending.size(), delimiter.size() - 1);
            receiver(std::string_view(m_pending).substr(0, size));
            m_pending.erase(0, size);
            ReadMore();
        }
        receiver(std::string_view(m_pending).substr(0, found));
        m_pending.erase(0, found + delimiter.size());
    }

    // The same for a short text.
    std::string ReadText(const std::string& delimiter, std::size_t largest)
    {
        std::string text;
        ReadTo(delimiter, [&](std::string_view piece) {
            if (text.size() + piece.size() > largest)
                throw MalformedBody("a field or a part's head is too large");
            text += piece;
        });
        return text;
    }

    // Whether a part follows the boundary that was just skipped. Its line end stays: a part without headers needs it as its empty line.
    bool HasPart()
    {
        while (m_pending.size() < 2)
            ReadMore();
        if (!m_pending.starts_with("--") && !m_pending.starts_with("\r\n"))
            throw MalformedBody("a boundary is followed by something else");
        return m_pending.starts_with("\r\n");
    }

private:
    void ReadMore()
    {
        const auto piece = m_request.readBody();
        if (piece.empty())
            throw MalformedBody("its closing boundary is missing");
        m_pending += piece;
    }

    const Request& m_request;
    std::string m_pending = "\r\n"; // received and not yet passed on; the first boundary has no line before it.
};

// The line "Content-Disposition" in a part's head.
std::string_view DispositionOf(std::string_view head)
{
    constexpr std::string_view kName = "Content-Disposition:";
    while (!head.empty())
        if (const auto line = TakeUpTo(head, "\r\n"); EqualIgnoringAsciiCase(line.substr(0, kName.size()), kName))
            return line;
    return {};
}

} // namespace

bool IsMultipart(const Request& request)
{
    const auto type = request.header("Content-Type").value_or("");
    return EqualIgnoringAsciiCase(Trimmed(std::string_view(type).substr(0, type.find(';'))), "multipart/form-data");
}

Upload ReadUpload(const Request& request, const std::filesystem::path& file, std::ios::openmode mode)
{
    const auto boundary = Parameter(request.header("Content-Type").value_or(""), "boundary");
    if (!IsMultipart(request) || !boundary || boundary->empty() || boundary->size() > kLongestBoundary)
        throw Malformed("the body is not multipart/form-data with a boundary");
    const std::string delimiter = "\r\n--" + *boundary;
    Upload upload;
    std::ofstream output;
    output.exceptions(std::ios::failbit | std::ios::badbit);
    BodySplitter body(request);
    body.ReadTo(delimiter, [](std::string_view) {});
    for (std::size_t parts = 0; body.HasPart(); ++parts)
    {
        const auto head = body.ReadText("\r\n\r\n", kLargestHead);
        const auto disposition = DispositionOf(head);
        const auto name = Parameter(disposition, "name");
        if (!name || parts == kMostParts)
            throw MalformedBody("a part has no name, or there are too many");
        if (!Parameter(disposition, "filename"))
        {
            const auto value = body.ReadText(delimiter, kLargestField);
            if (!IsValidUtf8(*name) || !IsValidUtf8(value))
                throw MalformedBody("a field is not UTF-8");
            upload.fields.emplace(*name, value);
            continue;
        }
        if (std::exchange(upload.hasFile, true))
            throw MalformedBody("it has more than one file");
        output.open(file, std::ios::out | std::ios::binary | mode);
        body.ReadTo(delimiter, [&](std::string_view piece) { output.write(piece.data(), static_cast<std::streamsize>(piece.size())); });
        output.close();
    }
    return upload;
}

} // namespace ApplianceParts
