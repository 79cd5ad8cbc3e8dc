#pragma once

/// @file
/// The tables of API versions that a server offers.

#include "QuendraHttp/Types.h"

#include <cstdint>
#include <string>
#include <unordered_map>

/// The server's path for one version of an API.
struct Endpoint
{
    std::wstring path;
    std::int32_t tos = 0;
};

/// Endpoints by version text, such as "1.3".
using EndpointTable = std::unordered_map<std::wstring, Endpoint>;

/// Reads the endpoint tables of a reply.
/// @param[in,out] synchronisation, logging  added to.
/// @return the number of synchronisation endpoints found.
/// @throws std::bad_alloc where memory runs out after parsing.
std::uint32_t GetEndpointsFromResponse(const ResponseBuffer& response, EndpointTable& synchronisation, EndpointTable& logging);
