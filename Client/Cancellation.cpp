#include "Cancellation.h"

#include "Client.h"
#include "Failures.h"

#include "Platform/Platform.h"
#include "QuendraHttp/QuendraHttp.h"

#include <utility>

namespace
{

// Between two requests of an operation there is no handle to close: try again after this time.
constexpr std::chrono::milliseconds kBetweenTries{50};

DWORD Milliseconds(std::chrono::milliseconds duration)
{
    return static_cast<DWORD>(duration.count());
}

} // namespace

void Cancellation::HandleCloser::operator()(void* handle) const
{
    CloseHandle(handle);
}

Cancellation::EventHandle Cancellation::MakeEvent()
{
    EventHandle event(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    if (!event)
        throw ProgramError("The system gives no event to cancel with");
    return event;
}

Cancellation::Cancellation(const Client& client, std::wstring key, std::chrono::milliseconds grace)
    : m_api(client.Api()), m_key(std::move(key)), m_grace(grace), m_cancel(MakeEvent()), m_finished(MakeEvent()), m_event{m_cancel.get()}
{
    m_watch = System::WatchInterrupts([this] { OnInterrupt(); });
}

Cancellation::~Cancellation()
{
    SetEvent(m_finished.get());
    m_watch.reset();
}

void Cancellation::Pause(std::chrono::milliseconds duration) const
{
    WaitForSingleObject(m_cancel.get(), Milliseconds(duration));
}

// Runs on the watch's thread.
void Cancellation::OnInterrupt()
{
    m_isRequested.store(true);
    SetEvent(m_cancel.get());
    for (auto wait = m_grace; WaitForSingleObject(m_finished.get(), Milliseconds(wait)) == WAIT_TIMEOUT; wait = kBetweenTries)
        m_api.CloseRequestHandle(m_key);
}
