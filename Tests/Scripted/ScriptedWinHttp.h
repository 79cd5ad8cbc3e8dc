#pragma once

/// @file
/// WinHTTP as a script: every call succeeds, is recorded, and fails where a test says so. The program that links this has no
/// other WinHTTP.

#include "Platform/Platform.h"
#include "QuendraHttp/Types.h"

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

struct WinHttpScript
{
    /// One answer to `WinHttpQueryDataAvailable` and the read that follows.
    struct Piece
    {
        DWORD announced = 0;
        std::string bytes;        ///< what the read delivers.
        DWORD availableError = 0; ///< fails the query.
        DWORD readError = 0;      ///< fails the read.
    };

    /// The answer to one request.
    struct Reply
    {
        std::uint32_t status = 200;
        std::string body;                ///< in one piece.
        DWORD error = 0;                 ///< fails the receiving of the reply.
        std::function<void()> meanwhile; ///< runs before the reply is received.
    };

    /// A step of the transport that ends in what the library's own never returns there, as another transport may.
    struct Foreign
    {
        /// "connect", "open", "field", "last field", "wide part", "part", "end multipart", "reply" or "file"; empty: none.
        std::string step;
        int call = 1; ///< which of them, from 1.
        ResultCode result = 0;
        DWORD lastError = 0;
    };

    /// A header as it was added.
    struct Header
    {
        std::wstring text;
        DWORD modifiers;

        bool operator==(const Header&) const = default;
    };

    /// What the status callback is told of when a request is sent.
    struct Notice
    {
        DWORD status;
        std::wstring text; ///< a name or an address.
        DWORD flags = 0;   ///< of a secure failure.
    };

    /// Makes the n-th call (from 1) of a function fail.
    void Fail(const std::string& function, DWORD error, int call = 1) { failures[{function, call}] = error; }

    /// How often a function was called.
    [[nodiscard]] int Count(const std::string& function) const
    {
        const auto entry = counts.find(function);
        return entry == counts.end() ? 0 : entry->second;
    }

    // What the server says.
    std::wstring status = L"200";
    std::wstring contentLength; ///< empty: not announced.
    std::deque<Piece> pieces;   ///< the body; over when empty.
    std::deque<Reply> replies;  ///< to the next requests, in place of the above.
    std::vector<Notice> notices;

    // What was asked.
    WINHTTP_STATUS_CALLBACK callback = nullptr; ///< the one that was set last, on any handle.
    DWORD notifications = 0;                    ///< those that it wants.
    std::vector<std::string> connections;       ///< "server:port"
    std::vector<std::vector<int>> timeouts;     ///< resolve, connect, send, receive of each call.
    std::vector<Header> headers;
    std::vector<std::string> requests; ///< "VERB path flags=0", of each request opened.
    std::vector<std::wstring> sendHeaders;
    std::string body;                ///< bytes sent with and after the requests.
    std::vector<std::string> writes; ///< those of each `WinHttpWriteData`.
    std::vector<HINTERNET> closed;

    std::map<std::pair<std::string, int>, DWORD> failures;
    Foreign foreign;
    std::map<std::string, int> counts;
    std::uintptr_t nextHandle = 0x1000;
};

/// The script that the calls follow; set by each test.
extern WinHttpScript g_script;
