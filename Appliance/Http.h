#pragma once

/// @file
/// A request and its reply for the handlers, and their text formats: queries, forms, multipart bodies, header values, JSON.

#include <json/value.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <ios>
#include <map>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace ApplianceParts
{

/// The "errorId" of a refusal. Clients act on `SessionNotValid` and `RevisionConflict`; the others are for the user.
enum class ErrorId
{
    Internal = 1,
    LoginRefused = 2,
    Malformed = 3,
    Unsupported = 4,
    NotFound = 5,
    SessionNotValid = 6,
    AlreadyExists = 7,
    WrongKind = 8,
    NameNotAllowed = 9,
    DeviceNotRegistered = 10,
    Incomplete = 11,
    Busy = 12,
    StorageFailed = 13,
    HeaderMissing = 14,
    RevisionConflict = 1077
};

/// A refusal: thrown by handlers, answered as `{"errorId":"N","message":"..."}`.
struct ApiError : std::runtime_error
{
    /// @param currentItem  the item's attributes, sent as "document_info" in a revision conflict.
    ApiError(int statusCode, ErrorId errorId, const std::string& message, Json::Value currentItem = {})
        : std::runtime_error(message), status(statusCode), id(errorId), item(std::move(currentItem))
    {
    }

    int status;
    ErrorId id;
    Json::Value item;
};

/// The refusal of a malformed request.
[[nodiscard]] ApiError Malformed(const std::string& message);

/// Values by name, where a name may occur several times: queries and forms.
using Fields = std::multimap<std::string, std::string, std::less<>>;

[[nodiscard]] std::optional<std::string> Find(const Fields& fields, std::string_view name);
/// @throws ApiError if the field is missing.
[[nodiscard]] std::string Require(const Fields& fields, std::string_view name);

struct Request
{
    std::string method = {};
    std::string path = {};  ///< as in the request line, without the query: still percent-encoded.
    std::string query = {}; ///< still percent-encoded.
    std::function<std::optional<std::string>(std::string_view name)> header = {};
    /// Returns the next piece of the body, valid until the next call; an empty one at the body's end. What a handler leaves is skipped.
    /// @throws ApiError if the body ends early.
    std::function<std::string_view()> readBody = {};
    /// Whether the client still waits for the reply.
    std::function<bool()> isClientWaiting = {};
};

/// A range of a file, sent block by block as a reply's body.
struct FileContent
{
    std::shared_ptr<std::FILE> file; ///< positioned at the range's first byte.
    std::uint64_t length = 0;
};

struct Reply
{
    int status = 200;
    std::string text = {};                   ///< JSON.
    std::optional<FileContent> content = {}; ///< instead of `text`, as application/octet-stream.

    [[nodiscard]] std::uint64_t Length() const { return content ? content->length : text.size(); }
};

/// May block, and is called from several threads. Does not throw.
using RequestHandler = std::function<Reply(const Request&)>;

[[nodiscard]] Reply JsonReply(const Json::Value& value = Json::objectValue, int status = 200);
[[nodiscard]] Reply ErrorReply(const ApiError& error);

using JsonMembers = std::initializer_list<std::pair<const char*, Json::Value>>;
[[nodiscard]] Json::Value JsonObject(JsonMembers members);
[[nodiscard]] Reply JsonReply(JsonMembers members);

/// Decodes %XX; nothing if an escape is malformed.
[[nodiscard]] std::optional<std::string> PercentDecode(std::string_view text);

/// Parses "a=1&b=2". Names and values are decoded, "+" as a space.
/// @throws ApiError if the text is not percent-encoded UTF-8.
[[nodiscard]] Fields ParseFields(std::string_view text);

/// Reads a form-urlencoded body of at most 4 MiB.
/// @throws ApiError if the body is not such a form.
[[nodiscard]] Fields ReadForm(const Request& request);

[[nodiscard]] bool IsMultipart(const Request& request);

struct Upload
{
    Fields fields;
    bool hasFile = false;
};

/// Parses a multipart body as a stream. The size and the number of fields are limited, the file's size is not.
/// @param file  receives the bytes of the file part; opened when that part begins.
/// @param mode  std::ios::trunc, or std::ios::app to append.
/// @throws ApiError if the body is malformed or ends early.
/// @throws std::system_error if the bytes cannot be written.
[[nodiscard]] Upload ReadUpload(const Request& request, const std::filesystem::path& file, std::ios::openmode mode = std::ios::trunc);

/// Removes the text up to a separator, which is removed too, or all of it if there is no separator.
/// @return the text before the separator.
[[nodiscard]] std::string_view TakeUpTo(std::string_view& text, std::string_view separator);

/// The text without spaces and line ends around it.
[[nodiscard]] std::string_view Trimmed(std::string_view text);

/// A parameter in a header's value: `; name=value` or `; name="value"`, also as its first part.
[[nodiscard]] std::optional<std::string> Parameter(std::string_view value, std::string_view name);

} // namespace ApplianceParts
