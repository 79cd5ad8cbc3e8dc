// The settings of uploads, which a process reads once.

#include "RegistryValues.h"
#include "ScriptedTransport.h"
#include "TransferSupport.h"

namespace
{

TEST(TransferSettings, ReachTheServerAndTheConnection)
{
    RegistryValues values;
    values.SetNumber(RegistryValues::Root::User, L"UploadExpiry", 24);
    values.SetNumber(RegistryValues::Root::User, L"HTTPDeltaSendRequestTimeout", 1111);
    values.SetNumber(RegistryValues::Root::User, L"HTTPReceiveResponseTimeout", 2222);
    ScriptedClient client;
    Item item = MakeItem();
    std::int64_t offset = 0;
    std::int64_t length = 9;
    FILETIME before{};
    GetSystemTimeAsFileTime(&before);
    client->ResumableUpload(L"local", L"/a", item, {}, &offset, &length, 0, {}, nullptr);
    const std::string prefix = "header qd_expiry: ";
    const auto& steps = client.script.requests.at(0);
    ASSERT_TRUE(steps.at(8).starts_with(prefix)) << steps.at(8);
    const std::int64_t now = static_cast<std::int64_t>((std::uint64_t{before.dwHighDateTime} << 32) | before.dwLowDateTime);
    const std::int64_t late = CAttributeTime(steps[8].substr(prefix.size())).GetTicks() - now - 24 * 36'000'000'000;
    EXPECT_GE(late, -10'000) << "the text tells milliseconds";
    EXPECT_LT(late, 600'000'000);

    const std::uint32_t delta = 1;
    client->UploadFile(L"local", L"/a", item, &delta, {}, nullptr);
    EXPECT_EQ(client.script.connections.at(1), "server:8080 send=1111 receive=2222");
}

} // namespace
