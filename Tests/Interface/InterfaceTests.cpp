// The built library as a client has it: its four functions, an instance's life, and a transport of the client's own.

#include "Eventing/EventSink.h"
#include "QuendraHttp/QuendraHttp.h"
#include "QuendraHttp/Transport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <vector>

namespace
{

// This program has no library's objects, so it listens to events by itself.
class Listener
{
public:
    Listener() : m_provider(OpenEventSink(4, Eventing::kAnyKeyword, &Listener::Take, this)) { Init(m_provider); }
    ~Listener()
    {
        Init(0);
        CloseEventSink(m_provider);
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;

    std::vector<std::string> events;

private:
    static void Take(void* context, const Eventing::Event* event)
    {
        static_cast<Listener*>(context)->events.push_back(std::to_string(event->descriptor->id) + " " + event->sourceUnit + ":" +
                                                          std::to_string(event->line) + " " + event->function);
    }

    Eventing::ProviderHandle m_provider;
};

// Counts how many owners it had when it was last asked; makes nothing.
struct OwnFactory final : IWinHttpFactory
{
    std::shared_ptr<IWinHttpSession> CreateSession() override
    {
        ++sessions;
        return nullptr;
    }
    std::shared_ptr<IWinHttpConnection> CreateConnection() override { return nullptr; }
    std::shared_ptr<IWinHttpRequest> CreateRequest(const std::shared_ptr<IWinHttpSession>&) override { return nullptr; }

    int sessions = 0;
};

TEST(Interface, InitIsTracedWithItsLinesAndExitDoesNothing)
{
    Listener listener;
    EXPECT_EQ(listener.events, (std::vector<std::string>{"110 Interface:19 Init", "111 Interface:23 Init"}));
    Exit();
    IQuendraHttpAPI* instance = CreateInstance(L"device");
    ASSERT_NE(instance, nullptr);
    EXPECT_GT(listener.events.size(), 2U) << "the provider is kept over Exit";
    const std::size_t before = listener.events.size();
    EXPECT_EQ(instance->ReservedNoOp(), 0U);
    EXPECT_EQ(listener.events.size(), before);
    instance->Release();
}

TEST(Interface, InstancesShareTheirCallersFactoryAndEndInEachWay)
{
    const auto factory = std::make_shared<OwnFactory>();
    const auto create = [&] {
        IQuendraHttpAPI* instance = CreateInstanceWithFactory(factory, L"device");
        EXPECT_EQ(factory.use_count(), 2);
        return instance;
    };
    create()->Release();
    delete create();
    ReleaseInstance(create());
    ReleaseInstance(nullptr);
    EXPECT_EQ(factory->sessions, 3);
    EXPECT_EQ(factory.use_count(), 1);
}

TEST(Interface, AnOperationBeforeSetServerFailsAtTheTransport)
{
    IQuendraHttpAPI* instance = CreateInstance(L"device");
    std::wstring build;
    EXPECT_NE(instance->Version(build), 0U);
    instance->Release();
}

} // namespace
