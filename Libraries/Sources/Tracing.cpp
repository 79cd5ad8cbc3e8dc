#include "Tracing.h"

#include <exception>

std::uint64_t EventProviderHandle = 0;

bool FunctionTraceScope::IsListenedTo(const Eventing::EventDescriptor& descriptor) const noexcept
{
    const LastErrorKeeper keeper;
    return IsEventEnabled(*m_provider, &descriptor) != 0;
}

void FunctionTraceScope::WriteFunction(const Eventing::EventDescriptor& descriptor) const noexcept
{
    const LastErrorKeeper keeper;
    if (IsEventEnabled(*m_provider, &descriptor) != 0)
        WriteEventFunction(*m_provider, &descriptor, m_sourceUnit, m_line, m_function);
}

void FunctionTraceScope::WriteExit() const noexcept
{
    // std::uncaught_exceptions reads thread-local storage, which clears the last error on Windows.
    const LastErrorKeeper keeper;
    if (std::uncaught_exceptions() == 0)
        WriteFunction(EVT_FUNCTION_EXIT);
    else if (IsListenedTo(EVT_FUNCTION_EXIT))
        WriteEventFormatted(*m_provider, &EVT_CRITICAL, m_sourceUnit, m_line, m_function, "[EXCEPTION EXIT]");
}
