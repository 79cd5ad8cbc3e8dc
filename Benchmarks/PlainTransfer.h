#pragma once

/// @file
/// What the library is compared with: the least that a program has to do with the HTTP library below ours, plain libcurl on Linux and a
/// bare WinHTTP loop on Windows.

#include <cstdint>
#include <memory>
#include <string>

/// The server that both peers use.
struct BenchmarkServer
{
    std::string origin; ///< "http://host" or "https://host"
    std::uint16_t port = 0;
};

/// One connection, kept between requests. Every operation throws `std::runtime_error` if it fails.
class PlainTransfer
{
public:
    virtual ~PlainTransfer() = default;

    /// The body that a GET returns.
    virtual std::string Get(const std::string& path) = 0;

    /// Writes the body that a GET returns into a new file.
    virtual void Download(const std::string& path, const std::string& file) = 0;

    /// Sends a file as the body of a POST.
    virtual void Upload(const std::string& path, const std::string& file) = 0;
};

/// @param testsEvent  tests a cancel event after each block, as the library does. Of no effect on Linux: libcurl knows no events.
std::unique_ptr<PlainTransfer> ConnectPlainly(const BenchmarkServer& server, bool testsEvent);

/// The processor time that the process has used, in seconds.
double ProcessorSeconds();
