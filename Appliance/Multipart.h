#pragma once

/// @file
/// Takes a multipart/form-data body apart while it streams in.

#include "Exchange.h"

#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>

namespace ApplianceParts
{

/// What becomes of the parts.
class IMultipartSink
{
public:
    virtual ~IMultipartSink() = default;

    virtual void Field(const std::string& name, const std::string& value) = 0;
    virtual void FileBegin() = 0;
    virtual void FileData(std::string_view data) = 0;
};

/// Fed with the body in pieces of any size. Holds a file's bytes no longer than it takes to know that they are no boundary.
///
///     Data (before the first boundary: skipped) --boundary--> BoundaryEnd --CR LF--> Head --empty line--> Data ...
///                                                              BoundaryEnd --"--"--> Closed (what follows is skipped)
class MultipartParser
{
public:
    MultipartParser(const std::string& boundary, IMultipartSink& sink);

    /// @throws ApiError where the body is malformed.
    void Take(std::string_view piece);

    /// @throws ApiError where the body ended before its closing boundary.
    void Finish() const;

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

    bool TakeData();
    bool TakeBoundaryEnd();
    bool TakeHead();
    void Deliver(std::string_view data);
    void EndPart();

    std::string m_delimiter;
    IMultipartSink& m_sink;
    State m_state = State::Data;
    Part m_part = Part::Preamble;
    std::string m_pending;
    std::size_t m_position = 0;
    std::string m_name;
    std::string m_value;
    std::size_t m_partCount = 0;
    bool m_hasFile = false;
};

/// The boundary in a multipart/form-data content type; nothing where it is another type or has none.
[[nodiscard]] std::optional<std::string> BoundaryOf(const std::string& contentType);

[[nodiscard]] bool IsMultipart(const Request& request);

struct Upload
{
    Fields fields;
    bool hasFile = false;
};

/// Reads a multipart body. Fields and their number are bounded, the file is not.
/// @param openFile  asked, when the file part begins, where its bytes go; gets the fields that came before it.
/// @throws ApiError where the body is malformed or ends early, or the bytes cannot be written.
[[nodiscard]] Upload ReadUpload(const Request& request, const std::function<std::ostream&(const Fields&)>& openFile);

} // namespace ApplianceParts
