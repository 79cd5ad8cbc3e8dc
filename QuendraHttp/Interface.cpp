// The exported functions.

#include "Tracing.h"
#include "Transport/WinHttpImpl.h"

#include "Platform/Platform.h"
#include "QuendraHttp/NativeHttp.h"

namespace
{

// Fixed line numbers: people filter trace events by them.
constexpr int kInitEntryLine = 19;
constexpr int kInitExitLine = 23;

void WriteFunctionEvent(const Eventing::EventDescriptor& descriptor, int line)
{
    const LastErrorKeeper keeper;
    if (IsEventEnabled(EventProviderHandle, &descriptor) != 0)
        WriteEventFunction(EventProviderHandle, &descriptor, Unit::Interface, line, "Init");
}

IQuendraHttpAPI* Create(const std::shared_ptr<IWinHttpFactory>& factory, const std::wstring& deviceName)
{
    return new CNativeHttp(factory, deviceName);
}

} // namespace

std::int32_t Init(std::uint64_t handle)
{
    EventProviderHandle = handle;
    // Entry and exit have different line numbers here, which a FunctionTraceScope cannot write.
    WriteFunctionEvent(EVT_FUNCTION_ENTRY, kInitEntryLine);
    WriteFunctionEvent(EVT_FUNCTION_EXIT, kInitExitLine);
    return 0;
}

void Exit()
{
}

IQuendraHttpAPI* CreateInstance(const std::wstring& deviceName)
{
    try
    {
        return Create(std::make_shared<WinHttpFactory>(), deviceName);
    }
    catch (...)
    {
        return nullptr;
    }
}

IQuendraHttpAPI* CreateInstanceWithFactory(const std::shared_ptr<IWinHttpFactory>& factory, const std::wstring& deviceName)
{
    try
    {
        return factory ? Create(factory, deviceName) : nullptr;
    }
    catch (...)
    {
        return nullptr;
    }
}
