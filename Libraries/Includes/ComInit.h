#pragma once

/// @file
/// Initialises COM for a scope, on Windows.

#if defined(_WIN32)

#include "QuendraHttp/Platform.h"

/// Initialises COM for the calling thread; the destructor uninitialises it.
///
/// If the thread already uses another apartment model, nothing changes: `Result` is RPC_E_CHANGED_MODE, and the destructor does nothing.
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

    /// S_OK, S_FALSE if COM was already initialised with the same model, or the error.
    [[nodiscard]] HRESULT Result() const noexcept { return m_result; }

private:
    HRESULT m_result;
};

#endif
