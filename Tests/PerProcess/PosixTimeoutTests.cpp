// A server that takes too long to answer. Wine 8 waits for it beyond the receive timeout, so this is shown on Linux.

#include "LibraryOverWire.h"
#include "RegistryValues.h"

#include <gtest/gtest.h>

namespace
{

TEST(Settings, BoundHowLongAServerMayTakeToAnswer)
{
    RegistryValues values;
    values.SetNumber(RegistryValues::Root::User, L"HTTPReceiveResponseTimeout", 200);
    RawServer server([](RawConnection& connection) {
        connection.ReadRequest();
        connection.Hold();
    });
    const Library library(server);
    std::wstring build;
    EXPECT_EQ(library->Version(build), 12002U);
}

} // namespace
