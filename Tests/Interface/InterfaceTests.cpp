// The built library: its exported functions, the life of an instance, and a transport that the client brings.

#include "TraceCapture.h"

#include "QuendraHttp/QuendraHttp.h"
#include "QuendraHttp/Transport.h"

#include <gtest/gtest.h>

namespace
{

TEST(Interface, InitIsTracedWithItsLinesAndExitEndsNothing)
{
    const TraceCapture trace;
    Init(EventProviderHandle);
    std::string events;
    for (const TracedEvent& event : trace.Events())
        events += event.text + ", ";
    EXPECT_EQ(events, "ENTER Interface:19         Init, EXIT  Interface:23         Init, ");
    Exit();
    IQuendraHttpAPI* instance = CreateInstance(L"device");
    ASSERT_NE(instance, nullptr);
    const std::size_t before = trace.Events().size();
    EXPECT_GT(before, 2U) << "the provider is kept over Exit";
    EXPECT_EQ(instance->ReservedNoOp(), 0U);
    EXPECT_EQ(trace.Events().size(), before);
    std::wstring build;
    EXPECT_NE(instance->Version(build), 0U) << "no server is set";
    instance->Release();
    Init(0);
}

TEST(Interface, InitKeepsTheLastErrorOfItsCaller)
{
    const auto spoil = [](void*, const Eventing::Event*) { SetLastError(99); };
    const Eventing::ProviderHandle sink = OpenEventSink(EVT_INFO.level, Eventing::kAnyKeyword, spoil, nullptr);
    SetLastError(7);
    Init(sink);
    EXPECT_EQ(GetLastError(), 7U);
    Init(0);
    CloseEventSink(sink);
}

TEST(Interface, InstancesShareTheirCallersFactoryAndEndInEachWay)
{
    struct Nothing final : IWinHttpFactory
    {
        std::shared_ptr<IWinHttpSession> CreateSession() override { return ++asked, nullptr; }
        std::shared_ptr<IWinHttpConnection> CreateConnection() override { return nullptr; }
        std::shared_ptr<IWinHttpRequest> CreateRequest(const std::shared_ptr<IWinHttpSession>&) override { return nullptr; }
        int asked = 0;
    };
    const auto factory = std::make_shared<Nothing>();
    const auto create = [&] {
        IQuendraHttpAPI* instance = CreateInstanceWithFactory(factory, L"device");
        EXPECT_EQ(factory.use_count(), 2);
        return instance;
    };
    create()->Release();
    delete create();
    ReleaseInstance(create());
    ReleaseInstance(nullptr);
    EXPECT_EQ(factory->asked, 3);
    EXPECT_EQ(factory.use_count(), 1);
}

} // namespace
