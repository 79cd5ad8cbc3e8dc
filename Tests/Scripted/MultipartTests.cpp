// Multipart bodies, byte by byte: what is announced is sent, for every range; files and connections that fail on the way.

#include "TextConversion.h"
#include "TransportFixture.h"

#include <algorithm>
#include <limits>
#include <set>

namespace
{

constexpr std::int64_t kHuge = std::numeric_limits<std::int64_t>::max();
constexpr std::int64_t kBlock = 16384;
constexpr std::size_t kHead = 3; // writes before a file's bytes: boundary, part header, content type

class Multipart : public TransportFixture
{
protected:
    ResultCode Send(std::int64_t offset = 0, std::int64_t length = kHuge, std::uint64_t* size = nullptr,
                    const std::wstring& name = L"a b&c/\u00e9")
    {
        return request->SendMultipartFile("file", path, name, cancel, &offset, &length, progress, size);
    }

    [[nodiscard]] std::string FilePart(const std::string& bytes) const
    {
        EXPECT_EQ(request->AddMultipartHeaders(true), Result::Success);
        const std::string type = ToNarrow(g_script.headers.back().text);
        const std::size_t boundary = type.find('"') + 1;
        return "--" + type.substr(boundary, type.size() - boundary - 2) +
               "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"a+b%26c%2F%C3%A9\"\r\n"
               "Content-Type: application/octet-stream\r\n\r\n" +
               bytes + "\r\n";
    }

    std::wstring path = folder.Write("file", Pattern(40000));
    const CancelEvent* cancel = nullptr;
};

TEST_F(Multipart, SizeModeTellsWhatDataModeSends)
{
    for (const std::int64_t size : {std::int64_t{0}, std::int64_t{1}, kBlock - 1, kBlock, kBlock + 1, 5 * kBlock + 7})
    {
        const std::string content = Pattern(static_cast<std::size_t>(size));
        path = folder.Write("file", content);
        const std::pair<std::int64_t, std::int64_t> ranges[] = {
            {0, kHuge}, {0, size},         {1, size},      {size / 2, 1}, {size / 2, kBlock},
            {size, 1},  {size + 1, kHuge}, {kHuge, kHuge}, {0, 0},        {0, -1}};
        for (const auto& [offset, length] : ranges)
        {
            SCOPED_TRACE(std::to_string(size) + ": " + std::to_string(offset) + "+" + std::to_string(length));
            // The part of the range that is in the file, computed in another way than the transport does.
            const bool isEmpty = offset > size || length <= 0;
            const std::string expected = isEmpty ? "" : content.substr(static_cast<std::size_t>(offset), static_cast<std::size_t>(length));
            Restart();
            progress->last = static_cast<std::uint64_t>(offset);
            std::uint64_t measured = 1;
            EXPECT_EQ(Send(offset, length, &measured), Result::Success);
            EXPECT_TRUE(g_script.body.empty() && progress->calls.empty());
            EXPECT_EQ(Send(offset, length), Result::Success);
            EXPECT_EQ(g_script.body, FilePart(expected));
            EXPECT_EQ(measured, g_script.body.size());
            EXPECT_TRUE(trace.Has(EVT_INFO, "Size request for [" + (folder / "file").string() + "], returned: " + std::to_string(measured) +
                                                " bytes"));
            EXPECT_TRUE(trace.Has(EVT_INFO, "Data request for '" + (folder / "file").string() + "'"));
            // One block at a time, with the position in the file where it ends.
            EXPECT_EQ(g_script.writes.size(), kHead + (expected.size() + kBlock - 1) / kBlock + 1);
            EXPECT_TRUE(progress->inOrder);
            EXPECT_EQ(progress->last, static_cast<std::uint64_t>(offset) + expected.size());
        }
    }
}

TEST_F(Multipart, AMeasurementHoldsForItsOwnFileAndRangeOnly)
{
    const std::wstring longer = folder.Write("longer", Pattern(100));
    const std::tuple<std::wstring, std::int64_t, std::int64_t> parts[] = {
        {longer, 0, kHuge}, {longer, 10, 20}, {longer, 10, 5}, {folder.Write("shorter", Pattern(40)), 0, kHuge}};
    std::uint64_t measured = 0;
    for (std::uint64_t* const size : {&measured, static_cast<std::uint64_t*>(nullptr)})
    {
        for (const auto& [file, offset, length] : parts)
        {
            path = file;
            EXPECT_EQ(Send(offset, length, size), Result::Success);
        }
        std::filesystem::resize_file(folder / "longer", 200);
    }
    EXPECT_EQ(g_script.body, FilePart(Pattern(100)) + FilePart(Pattern(100).substr(10, 20)) + FilePart(Pattern(100).substr(10, 5)) +
                                 FilePart(Pattern(40)));
}

TEST_F(Multipart, HeadsBeyondTheirLimitAreRefusedBeforeAnythingIsSent)
{
    const std::size_t room = 8192 - std::string(R"(Content-Disposition: form-data; name="file"; filename=""__)").size();
    const std::string field(8192 - std::string(R"(Content-Disposition: form-data; name=""____)").size(), 'x');
    EXPECT_EQ(request->AddMultipartFormData(field.c_str(), "v"), Result::Success);
    EXPECT_EQ(Send(0, kHuge, nullptr, std::wstring(room, L'x')), Result::Success);
    EXPECT_EQ(g_script.writes.at(1).size(), 8192U);
    EXPECT_TRUE(trace.Messages(EVT_ERROR).empty());

    Restart();
    std::uint64_t size = 0;
    for (std::uint64_t* const measured : {&size, static_cast<std::uint64_t*>(nullptr)})
    {
        EXPECT_EQ(Send(0, 1, measured, std::wstring(room + 1, L'x')), Result::InsufficientBuffer);
        EXPECT_EQ(Send(0, 1, measured, std::wstring(room / 3 + 1, L'&')), Result::InsufficientBuffer) << "the encoded name counts";
    }
    EXPECT_EQ(request->AddMultipartFormData((field + "x").c_str(), "v"), Result::InsufficientBuffer);
    EXPECT_EQ(request->AddMultipartFormData(std::wstring(8192, L'x').c_str(), L"v"), Result::InsufficientBuffer);
    EXPECT_EQ(request->GetPostDataLength(), 0U);
    EXPECT_TRUE(g_script.writes.empty());
    EXPECT_EQ(trace.CountOf(EVT_ERROR, "The part header of [file] does not fit 8192 bytes"), 4U);
}

TEST_F(Multipart, ACancelStopsAfterItsBlockAndHidesAFileThatCannotBeOpened)
{
    for (const std::uint64_t stopAt : {16384U, 32768U, 40000U})
    {
        const Event event;
        cancel = &event;
        Restart();
        progress->onBlock = [&] { progress->last == stopAt ? event.Signal() : void(); };
        EXPECT_EQ(Send(), Result::Cancelled);
        EXPECT_EQ(g_script.body, FilePart(Pattern(40000).substr(0, stopAt)));
    }
    const Event once(true);
    cancel = &once;
    Restart();
    once.Signal();
    EXPECT_EQ(Send(), Result::Cancelled);
    EXPECT_EQ(g_script.writes.size(), kHead + 2) << "an event that resets itself tells it once";
    once.Signal();
    path += L"-missing";
    EXPECT_EQ(Send(), Result::Cancelled);
    EXPECT_TRUE(trace.Messages(EVT_ERROR).empty());
}

TEST(Boundary, IsFreshForEachRequestAndTheMarkerOneForAll)
{
    std::set<std::wstring> values;
    while (values.size() < 20)
    {
        const std::wstring value = WinHttpRequest::GenerateRandomValue();
        EXPECT_TRUE(value.size() == 38 && value.front() == L'{' && value.find_first_not_of(L"0123456789ABCDEF-", 1) == 37);
        EXPECT_TRUE(value[15] == L'4' && value.find_first_of(L"89AB", 20) == 20 && value.back() == L'}') << "a random one";
        ASSERT_TRUE(values.insert(value).second);
    }
    const std::wstring marker = WinHttpRequest::GetMarker();
    EXPECT_TRUE(marker.size() == 38 + 18 && marker.starts_with(L"QD_MARK--{") && marker.ends_with(L"}--QD_MARK"));
    EXPECT_TRUE(WinHttpRequest::GetMarker() == marker);
}

} // namespace
