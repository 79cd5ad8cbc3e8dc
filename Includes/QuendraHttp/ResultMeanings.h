#pragma once

/// @file
/// Descriptions of result codes, used by programs for their messages and by Docs/ResultCodes.md.

#include "QuendraHttp/ResultCodes.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <string>

namespace Result
{

/// A code and what it means.
struct Meaning
{
    ResultCode code;  ///< as operations return it, or what is added to `RefusalBase`.
    const char* name; ///< the platform's name of the code; empty for a code defined by this library.
    const char* text; ///< what it means and, if possible, what to do about it: ASCII, one line, without parentheses.
};

/// The codes that operations return, in ascending order, without the refusals. The same numbers in the low half of an HRESULT
/// (0x8007....) mean the same.
inline constexpr Meaning kMeanings[] = {
    {0, "ERROR_SUCCESS", "success"},
    {2, "ERROR_FILE_NOT_FOUND", "a local file was not found"},
    {3, "ERROR_PATH_NOT_FOUND", "a local folder was not found"},
    {4, "ERROR_TOO_MANY_OPEN_FILES", "too many files are open"},
    {5, "ERROR_ACCESS_DENIED", "access denied, or a reply without the token or item that it should hold"},
    {6, "ERROR_INVALID_HANDLE", "the request was closed, or never opened"},
    {8, "ERROR_NOT_ENOUGH_MEMORY", "there is no reply in memory: the server sent an empty one, or memory ran out"},
    {13, "ERROR_INVALID_DATA", "the server's reply could not be understood"},
    {19, "ERROR_WRITE_PROTECT", "the medium is write-protected"},
    {29, "ERROR_WRITE_FAULT", "the local file could not be written"},
    {31, "ERROR_GEN_FAILURE", "a device does not function"},
    {32, "ERROR_SHARING_VIOLATION", "another program or operation uses the local file"},
    {38, "ERROR_HANDLE_EOF", "the local file ended early"},
    {39, "ERROR_HANDLE_DISK_FULL", "the disk is full"},
    {50, "ERROR_NOT_SUPPORTED", "the local path names no file but a pipe, a socket or a device"},
    {80, "ERROR_FILE_EXISTS", "the local file exists already"},
    {87, "ERROR_INVALID_PARAMETER", "an argument cannot be used"},
    {112, "ERROR_DISK_FULL", "the disk is full"},
    {120, "ERROR_CALL_NOT_IMPLEMENTED", "the system does not have the operation"},
    {122, "ERROR_INSUFFICIENT_BUFFER", "too long: a text does not fit its form field, or the server announced more than 5 MiB at once"},
    {123, "ERROR_INVALID_NAME", "the local path has characters that the system does not allow"},
    {131, "ERROR_NEGATIVE_SEEK", "a position before the start of the file"},
    {206, "ERROR_FILENAME_EXCED_RANGE", "the local path is too long"},
    {234, "ERROR_MORE_DATA", "there is more data than was asked for"},
    {267, "ERROR_DIRECTORY", "the local path is no folder"},
    {1113, "ERROR_NO_UNICODE_TRANSLATION", "a text cannot be converted"},
    {1223, "ERROR_CANCELLED", "cancelled"},
    {1237, "ERROR_RETRY", "another login changed the session meanwhile: try again"},
    {1341, "ERROR_SERVER_DISABLED", "this server takes no audit data"},
    {1450, "ERROR_NO_SYSTEM_RESOURCES", "the system has too few resources"},
    {12001, "ERROR_WINHTTP_OUT_OF_HANDLES", "the system has too few handles"},
    {12002, "ERROR_WINHTTP_TIMEOUT", "the server did not answer in time"},
    {12004, "ERROR_WINHTTP_INTERNAL_ERROR", "the server's reply lacks what it must hold: is this the right server?"},
    {12005, "ERROR_WINHTTP_INVALID_URL", "the request's address cannot be used, or is too long"},
    {12007, "ERROR_WINHTTP_NAME_NOT_RESOLVED", "the server's name cannot be resolved: check the name and the network"},
    {12009, "ERROR_WINHTTP_INVALID_OPTION", "an option of the transport is not known"},
    {12012, "ERROR_WINHTTP_SHUTDOWN", "the transport is shutting down"},
    {12015, "ERROR_WINHTTP_LOGIN_FAILURE", "the server or a proxy asks for a login of the transport's own"},
    {12017, "ERROR_WINHTTP_OPERATION_CANCELLED", "the request was closed"},
    {12018, "ERROR_WINHTTP_INCORRECT_HANDLE_TYPE", "a handle is of the wrong kind"},
    {12019, "ERROR_WINHTTP_INCORRECT_HANDLE_STATE", "a handle is in the wrong state"},
    {12029, "ERROR_WINHTTP_CANNOT_CONNECT", "cannot connect: check the server's name and port, and that the server runs"},
    {12030, "ERROR_WINHTTP_CONNECTION_ERROR", "the connection broke"},
    {12037, "ERROR_WINHTTP_SECURE_CERT_DATE_INVALID", "the server's certificate is not valid today: check the clock"},
    {12038, "ERROR_WINHTTP_SECURE_CERT_CN_INVALID", "the server's certificate is for another name"},
    {12044, "ERROR_WINHTTP_CLIENT_AUTH_CERT_NEEDED", "the server asks for a client certificate"},
    {12045, "ERROR_WINHTTP_SECURE_INVALID_CA", "the server's certificate comes from an authority that this machine does not trust"},
    {12057, "ERROR_WINHTTP_SECURE_CERT_REV_FAILED", "whether the server's certificate was withdrawn cannot be found out"},
    {12150, "ERROR_WINHTTP_HEADER_NOT_FOUND", "the reply lacks a header"},
    {12152, "ERROR_WINHTTP_INVALID_SERVER_RESPONSE", "the server's reply is no valid HTTP, or lacks the body that it needs"},
    {12153, "ERROR_WINHTTP_INVALID_HEADER", "a header of the request or of the reply is not valid"},
    {12155, "ERROR_WINHTTP_HEADER_ALREADY_EXISTS", "a header stands twice"},
    {12157, "ERROR_WINHTTP_SECURE_CHANNEL_ERROR", "a secure connection cannot be set up"},
    {12169, "ERROR_WINHTTP_SECURE_INVALID_CERT", "the server's certificate is not valid"},
    {12170, "ERROR_WINHTTP_SECURE_CERT_REVOKED", "the server's certificate was withdrawn"},
    {12175, "ERROR_WINHTTP_SECURE_FAILURE", "the secure connection was refused: the certificate is not trusted, or is for another name"},
    {12178, "ERROR_WINHTTP_AUTO_PROXY_SERVICE_ERROR", "the proxy settings cannot be read"},
    {12179, "ERROR_WINHTTP_SECURE_CERT_WRONG_USAGE", "the server's certificate is not one for servers"},
    {12180, "ERROR_WINHTTP_AUTODETECTION_FAILED", "no proxy settings were found"},
    {12185, "ERROR_WINHTTP_CLIENT_CERT_NO_PRIVATE_KEY", "the client certificate has no usable key"},
    {19006, "", "the server did not answer the handshake, or offers no API version that this library speaks"},
    {0x80004005, "E_FAIL", "memory for a text ran out"},
};

/// Refusals that carry an "errorId" of the server: the code is `RefusalBase` plus this one.
inline constexpr Meaning kServerErrors[] = {
    {0, "", "the transfer failed or the server refused it without saying why"},
    {6, "", "the session is not valid, or not any more: log in again"},
    {1077, "", "the item has changed on the server since that revision"},
};

/// Refusals without an "errorId": the code is `RefusalBase` plus the HTTP status, in a few operations the bare status.
inline constexpr Meaning kHttpStatuses[] = {
    {400, "", "bad request"},
    {401, "", "not logged in: log in again"},
    {403, "", "forbidden"},
    {404, "", "not found"},
    {405, "", "method not allowed"},
    {407, "", "the proxy asks for a login"},
    {408, "", "the server waited too long for the request"},
    {409, "", "conflict"},
    {410, "", "gone"},
    {411, "", "length required"},
    {412, "", "precondition failed"},
    {413, "", "too large"},
    {414, "", "the path is too long"},
    {415, "", "unsupported content"},
    {416, "", "the range lies outside the file"},
    {423, "", "locked"},
    {429, "", "too many requests: try again later"},
    {500, "", "the server has an internal error"},
    {501, "", "the server does not have the operation"},
    {502, "", "a gateway cannot reach the server"},
    {503, "", "the server is not available now: try again later"},
    {504, "", "a gateway waited too long for the server"},
    {507, "", "the server has no space left"},
};

/// @cond
namespace Detail
{

template <std::size_t Size> std::string TextOf(const Meaning (&table)[Size], ResultCode code)
{
    const auto found = std::ranges::find(table, code, &Meaning::code);
    return found != std::end(table) ? found->text : "";
}

inline bool IsHttpStatus(ResultCode code)
{
    return code >= 100 && code <= 599;
}

inline std::string MeaningOfStatus(ResultCode status)
{
    const std::string phrase = TextOf(kHttpStatuses, status);
    return "the server refused: HTTP " + std::to_string(status) + (phrase.empty() ? "" : ", " + phrase);
}

inline std::string MeaningOfRefusal(ResultCode error)
{
    if (std::string text = TextOf(kServerErrors, error); !text.empty())
        return text;
    return IsHttpStatus(error) ? MeaningOfStatus(error) : "the server refused: its error " + std::to_string(error);
}

} // namespace Detail
/// @endcond

/// Tells whether the server refused.
/// @param code  as an operation returned it.
/// @return true for 20000 to 0x80004E1F, `Result::Failed` aside, and for a bare HTTP status, as `AcknowledgeRemoteWipe` returns it, unless
///         `kMeanings` has the number as an error of the platform.
[[nodiscard]] inline bool IsRefusal(ResultCode code)
{
    constexpr ResultCode kLargestErrorId = 0x7FFFFFFF;
    return (code >= RefusalBase && code <= RefusalBase + kLargestErrorId && code != Failed) ||
           (Detail::IsHttpStatus(code) && Detail::TextOf(kMeanings, code).empty());
}

/// What a code means and, where there is something, what to do about it.
/// @param code  as an operation returned it.
/// @return ASCII, one line, without parentheses; never empty.
[[nodiscard]] inline std::string MeaningOf(ResultCode code)
{
    constexpr ResultCode kHResultOfPlatform = 0x80070000;
    if (std::string text = Detail::TextOf(kMeanings, code); !text.empty())
        return text;
    if ((code & 0xFFFF0000) == kHResultOfPlatform)
        return MeaningOf(code & 0xFFFF);
    if (IsRefusal(code))
        return code < RefusalBase ? Detail::MeaningOfStatus(code) : Detail::MeaningOfRefusal(code - RefusalBase);
    if (code >= 12001 && code <= 12192)
        return "an error of the HTTP transport";
    return "an error of the platform";
}

} // namespace Result
