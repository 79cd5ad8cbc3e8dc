#include "ResultMeanings.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <iterator>
#include <string_view>

namespace
{

struct Meaning
{
    std::uint32_t code;
    std::string_view text;
};

// In the order of the codes, which the search relies on.
constexpr Meaning kMeanings[] = {
    {0, "success"},
    {2, "a local file was not found"},
    {3, "a local folder was not found"},
    {4, "too many files are open"},
    {5, "access denied, or a reply without the token or item that it should hold"},
    {6, "the request was closed"},
    {8, "there is no reply in memory: the server sent an empty one, or memory ran out"},
    {13, "the server's reply could not be understood"},
    {19, "the medium is write-protected"},
    {29, "the local file could not be written"},
    {31, "a device does not function"},
    {32, "another program uses the local file"},
    {38, "the local file ended early"},
    {39, "the disk is full"},
    {80, "the local file exists already"},
    {87, "an argument cannot be used"},
    {112, "the disk is full"},
    {120, "this version of the library does not have the operation"},
    {122, "too long: a text does not fit its form field, or the server announced more than 5 MiB at once"},
    {123, "the local path has characters that the system does not allow"},
    {131, "a position before the start of the file"},
    {206, "the local path is too long"},
    {234, "there is more data than was asked for"},
    {267, "the local path is no folder"},
    {1113, "a text cannot be converted"},
    {1223, "cancelled"},
    {1237, "another login changed the session meanwhile: try again"},
    {1341, "this server takes no audit data"},
    {1450, "the system has too few resources"},
    {12001, "the system has too few handles"},
    {12002, "the server did not answer in time"},
    {12004, "the server's reply lacks what it must hold: is this the right server?"},
    {12005, "the request's address cannot be used"},
    {12006, "the server sent the request on to an address that is neither http nor https"},
    {12007, "the server's name cannot be resolved: check --server and the network"},
    {12009, "an option of the transport is not known"},
    {12012, "the transport is shutting down"},
    {12015, "the server or a proxy asks for a login of the transport's own"},
    {12017, "the request was closed"},
    {12018, "a handle is of the wrong kind"},
    {12019, "a handle is in the wrong state"},
    {12029, "cannot connect: check --server and --port, and that the server runs"},
    {12030, "the connection broke"},
    {12037, "the server's certificate is not valid today: check the clock"},
    {12038, "the server's certificate is for another name"},
    {12044, "the server asks for a client certificate"},
    {12045, "the server's certificate comes from an authority that this machine does not trust"},
    {12057, "whether the server's certificate was withdrawn cannot be found out"},
    {12150, "the reply lacks a header"},
    {12152, "the server's reply is no valid HTTP, or lacks the body that it needs"},
    {12153, "a header of the reply is not valid"},
    {12155, "a header stands twice"},
    {12156, "the server sent the request on to where it cannot follow"},
    {12157, "a secure connection cannot be set up"},
    {12169, "the server's certificate is not valid"},
    {12170, "the server's certificate was withdrawn"},
    {12175, "the secure connection was refused: the certificate is not trusted, or is for another name"},
    {12178, "the proxy settings cannot be read"},
    {12180, "no proxy settings were found"},
    {12185, "the client certificate has no usable key"},
    {19006, "the server offers no API version that this library speaks"},
};
static_assert(std::is_sorted(std::begin(kMeanings), std::end(kMeanings),
                             [](const Meaning& left, const Meaning& right) { return left.code < right.code; }));

// What the server refuses with an errorId of its own.
constexpr Meaning kServerErrors[] = {
    {0, "the transfer failed or the server refused it without saying why"},
    {6, "the session is not valid, or not any more: log in again"},
    {1077, "the item has changed on the server since that revision"},
};

constexpr Meaning kStatuses[] = {
    {400, "bad request"},
    {401, "not logged in: run 'quendra login USER'"},
    {403, "forbidden"},
    {404, "not found"},
    {405, "method not allowed"},
    {407, "the proxy asks for a login"},
    {408, "the server waited too long for the request"},
    {409, "conflict"},
    {410, "gone"},
    {411, "length required"},
    {412, "precondition failed"},
    {413, "too large"},
    {414, "the path is too long"},
    {415, "unsupported content"},
    {416, "the range lies outside the file"},
    {423, "locked"},
    {429, "too many requests: try again later"},
    {500, "the server has an internal error"},
    {501, "the server does not have the operation"},
    {502, "a gateway cannot reach the server"},
    {503, "the server is not available now: try again later"},
    {504, "a gateway waited too long for the server"},
    {507, "the server has no space left"},
};

constexpr std::uint32_t kLastRefusal = 27775; // the highest that the library itself tells from platform errors
constexpr std::uint32_t kHResultOfPlatform = 0x80070000;

template <std::size_t Size> std::string_view Find(const Meaning (&table)[Size], std::uint32_t code)
{
    const auto found = std::find_if(std::begin(table), std::end(table), [code](const Meaning& meaning) { return meaning.code == code; });
    return found != std::end(table) ? found->text : std::string_view();
}

std::string StatusMeaning(std::uint32_t status)
{
    std::string text = "the server refused: HTTP " + std::to_string(status);
    if (const auto phrase = Find(kStatuses, status); !phrase.empty())
        text.append(", ").append(phrase);
    return text;
}

std::string RefusalMeaning(std::uint32_t error)
{
    if (const auto text = Find(kServerErrors, error); !text.empty())
        return std::string(text);
    if (error >= 100 && error <= 599)
        return StatusMeaning(error);
    return "the server refused: its error " + std::to_string(error) + "; --trace - shows its reply";
}

} // namespace

std::string CodeText(ResultCode code)
{
    if (code < 0x80000000)
        return std::to_string(code);
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "0x%08X", code);
    return text.data();
}

std::string MeaningOf(ResultCode code)
{
    if (const auto text = Find(kMeanings, code); !text.empty())
        return std::string(text);
    if (code == Result::Failed)
        return "memory for a text ran out";
    if ((code & 0xFFFF0000) == kHResultOfPlatform)
        return MeaningOf(code & 0xFFFF);
    if (code >= Result::RefusalBase && code <= kLastRefusal)
        return RefusalMeaning(code - Result::RefusalBase);
    // Some operations pass a refusal's bare HTTP status.
    if (code >= 100 && code <= 599)
        return StatusMeaning(code);
    if (code >= 12001 && code <= 12192)
        return "an error of the HTTP transport";
    return "an error of the platform";
}
