#pragma once

/// @file
/// What WinHTTP does while it connects, as trace events. Result codes alone do not tell, for example, why a certificate was refused.

#include "Platform/Platform.h"

/// Traces the steps of a request: the name that is resolved, the addresses that are connected to, when the request is sent, and each reason
/// for which TLS failed. With a proxy, name and addresses are the proxy's. A request that uses a kept connection has no steps before
/// sending. If nobody listens to the trace, no callback is registered.
/// @param request  a request handle, before it is sent.
void TraceConnectionSteps(HINTERNET request) noexcept;
