// A folder of a hundred thousand items, as a server sends it: some 25 MB in pieces of no particular length.

#include "Attributes.h"
#include "LibraryOverWire.h"

#include <gtest/gtest.h>

#include <cstdio>

namespace
{

constexpr int kItems = 100'000;
const std::string kTimes = R"("creation_time":"2015-03-02T10:20:30.1234567Z","modification_time":"2016-02-29T23:59:59.7654321Z")";

std::string MakeReply()
{
    std::string reply = R"({"name":"d","directory":true,)" + kTimes + R"(,"contents":[)";
    for (int number = 0; number < kItems; ++number)
        reply += (number == 0 ? R"({"name":"Quarterly report )" : R"(,{"name":"Quarterly report )") + std::to_string(number) +
                 R"(.docx","revision":"4f9c2e7a","directory":false,)" + kTimes + R"(,"size":)" + std::to_string(number) +
                 R"(,"attributes":32,"permissions":"WRITE","folder_permissions":"WRITE"})";
    return reply + "]}";
}

TEST(LargeListing, ComesWhole)
{
    RawServer server(AfterHandshake([](RawConnection& connection, const std::string&) {
        constexpr std::size_t kPiece = 60'001;
        const std::string reply = MakeReply();
        connection.Send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n");
        for (std::size_t start = 0; start < reply.size(); start += kPiece)
        {
            const std::string piece = reply.substr(start, kPiece);
            char length[16];
            std::snprintf(length, sizeof length, "%zx\r\n", piece.size());
            connection.Send(length + piece + "\r\n");
        }
        connection.Send("0\r\n\r\n");
    }));
    const Library library(server);
    ASSERT_EQ(library.ShakeHands(), 0U);
    ServerItemList children;
    std::shared_ptr<IServerAttributes> folder;
    ASSERT_EQ(library->GetPathListing(L"/d", children, folder, nullptr), 0U);
    EXPECT_EQ(children.size(), static_cast<std::size_t>(kItems));
    std::int64_t number = 0;
    for (const auto& item : children)
        ASSERT_EQ(item->GetSize(), number++);
    EXPECT_TRUE(children.back()->GetName() == L"Quarterly report 99999.docx");
    EXPECT_TRUE(folder->GetName() == L"d");
}

} // namespace
