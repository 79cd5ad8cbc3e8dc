#pragma once

/// @file
/// Ctrl-C while an operation of the library runs.

#include "System.h"

#include "QuendraHttp/Types.h"

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

class Client;
class IQuendraHttpAPI;

/// While it exists, Ctrl-C does not end the program: it signals the cancel event, and closes the request of an operation that does not end
/// in time.
class Cancellation
{
public:
    /// @param key    names the operation for `CloseRequestHandle`: its server path, or "/notifs".
    /// @param grace  how long the operation may take to end after the event.
    /// @throws ProgramError
    Cancellation(const Client& client, std::wstring key, std::chrono::milliseconds grace);
    ~Cancellation();

    Cancellation(const Cancellation&) = delete;
    Cancellation& operator=(const Cancellation&) = delete;

    [[nodiscard]] const CancelEvent& Event() const { return m_event; }
    [[nodiscard]] bool IsRequested() const { return m_isRequested.load(); }

    /// Waits; Ctrl-C ends the wait.
    void Pause(std::chrono::milliseconds duration) const;

private:
    void OnInterrupt();

    struct HandleCloser
    {
        void operator()(void* handle) const;
    };
    using EventHandle = std::unique_ptr<void, HandleCloser>;
    static EventHandle MakeEvent();

    IQuendraHttpAPI& m_api;
    std::wstring m_key;
    std::chrono::milliseconds m_grace;
    EventHandle m_cancel;
    EventHandle m_finished;
    CancelEvent m_event;
    std::atomic<bool> m_isRequested = false;
    std::unique_ptr<System::InterruptWatch> m_watch; // its destructor waits for a running call
};
