// Multipart bodies byte by byte: what is announced is what is sent, whatever the range, and what becomes of a file or a connection
// that fails on the way.

#include "ScriptedWinHttp.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "TransferSupport.h"
#include "Transport/WinHttpImpl.h"
#include "Transport/WinHttpImplRequest.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <set>

namespace
{

constexpr std::int64_t kHuge = std::numeric_limits<std::int64_t>::max();
constexpr std::size_t kHead = 3; // writes before a file's bytes: boundary, part header, content type

struct Range
{
    std::int64_t offset;
    std::int64_t length;
};

class Multipart : public testing::Test
{
protected:
    Multipart() { Restart(); }

    // A request of its own, with nothing recorded.
    void Restart()
    {
        g_script = {};
        trace.Clear();
        progress.reset();
        request = std::make_shared<WinHttpRequest>(session);
        EXPECT_EQ(request->AddMultipartHeaders(true), 0U);
        const std::wstring& type = g_script.headers.back().text;
        boundary.assign(type.begin() + static_cast<std::ptrdiff_t>(type.find(L'"')) + 1, type.end() - 2);
    }

    ResultCode Send(const std::optional<Range>& range = {}, std::uint64_t* size = nullptr, const CancelEvent* cancel = nullptr,
                    const std::wstring& name = L"a b&c/\u00e9")
    {
        return range ? request->SendMultipartFile("file", path, name, cancel, &range->offset, &range->length, progress, size)
                     : request->SendMultipartFile("file", path, name, cancel, progress, size);
    }

    [[nodiscard]] std::string FilePart(const std::string& bytes) const
    {
        return "--" + boundary +
               "\r\nContent-Disposition: form-data; name=\"file\"; filename=\"a+b%26c%2F%C3%A9\"\r\n"
               "Content-Type: application/octet-stream\r\n\r\n" +
               bytes + "\r\n";
    }

    const TemporaryFolder folder;
    std::wstring path = folder.Write("file", Pattern(100));
    TraceCapture trace;
    const std::shared_ptr<WinHttpSession> session = std::make_shared<WinHttpSession>();
    std::shared_ptr<WinHttpRequest> request;
    std::shared_ptr<IProgressCallback> progress;
    std::string boundary;
};

TEST_F(Multipart, SizeModeTellsWhatDataModeSends)
{
    constexpr std::int64_t block = 16384;
    using Ranges = std::vector<std::optional<Range>>; // none: the whole file
    for (const std::int64_t size :
         std::vector<std::int64_t>{0, 1, block - 1, block, block + 1, 2 * block - 1, 2 * block, 2 * block + 1, 5 * block, 5 * block + 7})
    {
        const std::string content = Pattern(static_cast<std::size_t>(size));
        path = folder.Write("file", content);
        for (const std::optional<Range>& range : Ranges{{},
                                                        {{0, size}},
                                                        {{0, kHuge}},
                                                        {{1, size}},
                                                        {{size / 2, 1}},
                                                        {{size / 2, block}},
                                                        {{std::max<std::int64_t>(size - 1, 0), 2}},
                                                        {{size, 1}},
                                                        {{size + 1, kHuge}},
                                                        {{kHuge, kHuge}},
                                                        {{0, 0}},
                                                        {{0, -1}}})
        {
            SCOPED_TRACE(std::to_string(size) + ": " +
                         (range ? std::to_string(range->offset) + "+" + std::to_string(range->length) : "whole"));
            // What lies in the file of the range, written down apart from how the transport finds it.
            std::string expected = content;
            if (range)
                expected = range->offset > size || range->length <= 0
                               ? ""
                               : content.substr(static_cast<std::size_t>(range->offset), static_cast<std::size_t>(range->length));
            Restart();
            const auto record = std::make_shared<ProgressRecord>();
            progress = record;
            const auto start = static_cast<std::uint64_t>(range ? range->offset : 0);
            record->last = start;
            std::uint64_t measured = 1;
            EXPECT_EQ(Send(range, &measured), 0U);
            EXPECT_TRUE(g_script.body.empty());
            EXPECT_TRUE(record->calls.empty());
            EXPECT_EQ(Send(range), 0U);
            EXPECT_EQ(g_script.body, FilePart(expected));
            EXPECT_EQ(measured, g_script.body.size());
            EXPECT_TRUE(trace.Has(EVT_INFO, "Size request for [" + (folder / "file").string() + "], returned: " + std::to_string(measured) +
                                                " bytes"));
            EXPECT_TRUE(trace.Has(EVT_INFO, "Data request for '" + (folder / "file").string() + "'"));
            // One block a time, told with the position in the file that it ends at.
            EXPECT_EQ(g_script.writes.size(), kHead + (expected.size() + block - 1) / block + 1);
            EXPECT_TRUE(record->inOrder);
            EXPECT_EQ(record->last, start + expected.size());
        }
    }
    // A file that has grown since goes out as it was.
    Restart();
    std::uint64_t measured = 0;
    path = folder.Write("file", Pattern(100));
    EXPECT_EQ(Send({}, &measured), 0U);
    path = folder.Write("file", Pattern(150));
    EXPECT_EQ(Send(), 0U);
    EXPECT_EQ(g_script.body, FilePart(Pattern(100)));
}

TEST_F(Multipart, AMeasurementHoldsForItsOwnFileAndRangeOnly)
{
    struct Part
    {
        std::wstring path;
        std::optional<Range> range;
        std::string sent;
    };
    const std::wstring longer = folder.Write("longer", Pattern(100));
    const std::wstring shorter = folder.Write("shorter", Pattern(40));
    const Part parts[] = {{longer, {}, Pattern(100)},
                          {longer, {{10, 20}}, Pattern(100).substr(10, 20)},
                          {longer, {{10, 5}}, Pattern(100).substr(10, 5)},
                          {shorter, {}, Pattern(40)}};
    std::string expected;
    const auto inTurn = [&](std::uint64_t* size) {
        for (const Part& part : parts)
        {
            path = part.path;
            EXPECT_EQ(Send(part.range, size), 0U);
        }
    };
    for (const Part& part : parts)
        expected += FilePart(part.sent);
    std::uint64_t measured = 0;
    inTurn(&measured);
    std::filesystem::resize_file(folder / "longer", 200);
    inTurn(nullptr);
    EXPECT_EQ(g_script.body, expected);
}

TEST_F(Multipart, HeadsBeyondTheirLimitAreRefusedBeforeAnythingIsSent)
{
    const std::string around = R"(Content-Disposition: form-data; name="file"; filename=""__)";
    const std::size_t room = 8192 - around.size();
    const std::string field(8192 - std::string(R"(Content-Disposition: form-data; name=""____)").size(), 'x');
    EXPECT_EQ(request->AddMultipartFormData(field.c_str(), "v"), 0U);
    EXPECT_EQ(Send({}, nullptr, nullptr, std::wstring(room, L'x')), 0U);
    EXPECT_EQ(g_script.writes.at(1).size(), 8192U);
    EXPECT_TRUE(trace.Messages(EVT_ERROR).empty());

    Restart();
    std::uint64_t size = 0;
    for (std::uint64_t* const measured : {&size, static_cast<std::uint64_t*>(nullptr)})
    {
        EXPECT_EQ(Send({}, measured, nullptr, std::wstring(room + 1, L'x')), 122U);
        EXPECT_EQ(Send(Range{0, 1}, measured, nullptr, std::wstring(room / 3 + 1, L'&')), 122U) << "the encoded name counts";
    }
    EXPECT_EQ(request->AddMultipartFormData((field + "x").c_str(), "v"), 122U);
    EXPECT_EQ(request->AddMultipartFormData(std::wstring(8192, L'x').c_str(), L"v"), 122U);
    EXPECT_EQ(request->GetPostDataLength(), 0U);
    EXPECT_TRUE(g_script.writes.empty());
    EXPECT_EQ(trace.CountOf(EVT_ERROR, "The part header of [file] does not fit 8192 bytes"), 4U);
}

TEST_F(Multipart, ACancelStopsAfterItsBlockAndHidesAFileThatCannotBeOpened)
{
    path = folder.Write("file", Pattern(40000));
    for (const std::uint64_t stopAt : {16384U, 32768U, 40000U})
    {
        const Event event;
        Restart();
        const auto record = std::make_shared<ProgressRecord>();
        record->onBlock = [&] { record->last == stopAt ? event.Signal() : void(); };
        progress = record;
        EXPECT_EQ(Send({}, nullptr, &event), 1223U);
        EXPECT_EQ(g_script.body, FilePart(Pattern(40000).substr(0, stopAt)));
    }
    const Event once(true);
    Restart();
    once.Signal();
    EXPECT_EQ(Send({}, nullptr, &once), 1223U);
    EXPECT_EQ(g_script.writes.size(), kHead + 2) << "an event that resets itself tells it once";
    once.Signal();
    path += L"-missing";
    EXPECT_EQ(Send({}, nullptr, &once), 1223U);
    EXPECT_TRUE(trace.Messages(EVT_ERROR).empty());
}

TEST_F(Multipart, AFailingWriteEndsTheFileAndOnlyTheFilesWritesAreJudged)
{
    path = folder.Write("file", Pattern(40000));
    for (int call = 1; call <= 7; ++call)
    {
        Restart();
        const auto record = std::make_shared<ProgressRecord>();
        progress = record;
        g_script.Fail("WinHttpWriteData", 12030, call);
        const bool isJudged = call > 3 && call < 7;
        EXPECT_EQ(Send(), isJudged ? 12030U : 0U) << call;
        EXPECT_EQ(trace.CountOf(EVT_ERROR, "WinHttpWriteData failed, error=12030"), isJudged ? 1U : 0U);
        EXPECT_EQ(g_script.Count("WinHttpWriteData"), isJudged ? call + 1 : 7) << "the line end goes out all the same";
        EXPECT_EQ(record->last, isJudged ? static_cast<std::uint64_t>(call - 4) * 16384 : 40000);
    }
}

TEST(Boundary, IsFreshForEachRequestAndTheMarkerOneForAll)
{
    std::set<std::wstring> values;
    while (values.size() < 20)
    {
        const std::wstring value = WinHttpRequest::GenerateRandomValue();
        EXPECT_TRUE(value.size() == 38 && value.front() == L'{' && value.find_first_not_of(L"0123456789ABCDEF-", 1) == 37);
        EXPECT_TRUE(value[15] == L'4' && value.back() == L'}') << "a random one";
        ASSERT_TRUE(values.insert(value).second);
    }
    const std::wstring marker = WinHttpRequest::GetMarker();
    EXPECT_TRUE(marker.size() == 38 + 18 && marker.starts_with(L"QD_MARK--{") && marker.ends_with(L"}--QD_MARK"));
    EXPECT_TRUE(WinHttpRequest::GetMarker() == marker);
}

} // namespace
