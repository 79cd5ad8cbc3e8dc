#pragma once

/// @file
/// What transfers are compared with: the least that a program has to do with the HTTP library that lies below ours, plain libcurl on
/// Linux and a bare WinHTTP loop on Windows.

#include <cstdint>
#include <memory>
#include <string>

/// An http server of this machine.
struct BenchmarkServer
{
    std::string host;
    std::uint16_t port = 0;
};

/// One connection, kept between transfers.
class PlainTransfer
{
public:
    virtual ~PlainTransfer() = default;

    /// Writes what a GET brings into a file, made anew. Throws `std::runtime_error` where that fails.
    virtual void Download(const std::string& path, const std::string& file) = 0;

    /// Sends a file as the body of a POST.
    virtual void Upload(const std::string& path, const std::string& file) = 0;
};

std::unique_ptr<PlainTransfer> ConnectPlainly(const BenchmarkServer& server);

/// Processor time of the calling thread, in seconds.
double ThreadSeconds();

/// What the comparison is with, as a reader of the figures calls it.
extern const char* const kPlainName;
