#pragma once

/// @file
/// One request and its reply as the appliance's handlers see them, free of the HTTP library underneath.

#include "System.h"

#include <json/value.h>

#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace ApplianceParts
{

/// The "errorId" of a refusal. Clients act on `SessionNotValid` and `RevisionConflict`; the others tell a person what happened.
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
class ApiError : public std::exception
{
public:
    ApiError(int status, ErrorId id, std::string message, Json::Value item = {})
        : m_status(status), m_id(id), m_message(std::move(message)), m_item(std::move(item))
    {
    }

    [[nodiscard]] const char* what() const noexcept override { return m_message.c_str(); }
    [[nodiscard]] int Status() const { return m_status; }
    /// The reply's JSON: a revision conflict also carries the item's current attributes, as "document_info".
    [[nodiscard]] Json::Value Body() const;

private:
    int m_status;
    ErrorId m_id;
    std::string m_message;
    Json::Value m_item;
};

/// Texts by name, of which a name may occur several times: queries and forms.
using Fields = std::multimap<std::string, std::string, std::less<>>;

[[nodiscard]] std::optional<std::string> Find(const Fields& fields, std::string_view name);

/// Takes a body's bytes piece by piece, in order.
using BodyReceiver = std::function<void(std::string_view)>;

struct Request
{
    std::string method;
    std::string path; ///< as it stood in the request line, without the query: still percent-encoded.
    Fields query;
    std::function<std::optional<std::string>(const std::string& name)> header;
    /// Streams the body to a receiver. What the receiver throws comes out once the body has been read to its end, so that the
    /// connection stays usable and the client, which sends everything before it reads, sees the reply.
    /// @throws ApiError where the body ends early.
    std::function<void(const BodyReceiver&)> readBody;
    /// Whether the client still waits for the reply.
    std::function<bool()> isClientWaiting;
};

/// A stretch of a file, sent as a reply's body block by block.
struct FileContent
{
    std::shared_ptr<System::IFile> file;
    std::uint64_t offset = 0;
    std::uint64_t length = 0;
    std::shared_ptr<const void> owner; ///< what has to live until the last byte is sent, if anything.
};

struct Reply
{
    int status = 200;
    std::string contentType;
    std::string text;
    std::optional<FileContent> content; ///< in place of `text`.
};

[[nodiscard]] Reply JsonReply(const Json::Value& value, int status = 200);
[[nodiscard]] Reply EmptyReply(int status);
[[nodiscard]] Reply ErrorReply(const ApiError& error);

[[nodiscard]] std::string ToText(const Json::Value& value);

} // namespace ApplianceParts
