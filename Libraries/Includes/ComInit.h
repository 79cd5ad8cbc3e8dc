#pragma once

/// @file
/// COM for a scope, on the systems that have it.

#if defined(_WIN32)

#include "Platform/Platform.h"

/// Initialises COM for the calling thread, and ends it with the scope.
///
/// A thread that runs COM with another model already is left as it is: `Result` is RPC_E_CHANGED_MODE then, and the scope does
/// nothing at its end.
class ComInit
{
public:
    explicit ComInit(DWORD model = COINIT_MULTITHREADED) noexcept : m_result(CoInitializeEx(nullptr, model)) {}
    ~ComInit()
    {
        if (SUCCEEDED(m_result))
            CoUninitialize();
    }

    ComInit(const ComInit&) = delete;
    ComInit& operator=(const ComInit&) = delete;

    /// S_OK, S_FALSE where COM ran with the same model before, or why it does not run as it was asked to.
    [[nodiscard]] HRESULT Result() const noexcept { return m_result; }

private:
    HRESULT m_result;
};

#endif
