// Files above 4 GiB: the right bytes, the right Content-Length, and no growing memory. The file is sparse; each MiB begins with its
// position.

#include "LibraryOverWire.h"
#include "Operations.h"
#include "PeakMemory.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "TransferSupport.h"

#include <cstdio>

namespace
{

constexpr std::uint64_t kStride = 1 << 20;
constexpr std::uint64_t kFourGib = std::uint64_t{1} << 32;
constexpr std::uint64_t kSize = kFourGib + 3 * kStride + 12345;
constexpr std::uint64_t kAllowedGrowth = 4 << 20;

// A file from a position on, block by block.
class Reader
{
public:
    Reader(const std::filesystem::path& path, std::uint64_t position) : m_file(path, std::ios::binary)
    {
        m_file.seekg(static_cast<std::streamoff>(position));
    }

    // The next bytes, a block at most; fewer at the end.
    std::string_view Next(std::uint64_t bytes)
    {
        m_block.resize(static_cast<std::size_t>(std::min<std::uint64_t>(bytes, 1 << 18)));
        m_file.read(m_block.data(), static_cast<std::streamsize>(m_block.size()));
        return std::string_view(m_block).substr(0, static_cast<std::size_t>(m_file.gcount()));
    }

    // Whether these bytes, a block at most, are the next ones.
    bool Matches(std::string_view bytes) { return Next(bytes.size()) == bytes; }

private:
    std::ifstream m_file;
    std::string m_block;
};

class LargeTransfer : public testing::Test
{
protected:
    // The first transfer is small: memory that the process allocates once does not count.
    void ExpectNoGrowth(const std::function<void(std::uint64_t size, Caller& caller)>& transfer)
    {
        std::uint64_t before = 0;
        for (const std::uint64_t size : {kAllowedGrowth, kSize})
        {
            before = PeakMemory();
            ASSERT_GT(before, 0U);
            std::ofstream file(m_path, std::ios::binary);
            for (std::uint64_t position = 0; position < size; position += kStride)
                file.seekp(static_cast<std::streamoff>(position)) << position;
            file.close();
            std::filesystem::resize_file(m_path, size);
            Caller caller;
            caller.item = MakeItem(static_cast<std::int64_t>(size));
            caller.local = m_path.wstring();
            transfer(size, caller);
        }
        EXPECT_LT(PeakMemory() - before, kAllowedGrowth);
    }

    // Downloads a part of the file.
    void ExpectDown(const Operation& transfer, Caller& caller, std::uint64_t start, std::uint64_t bytes)
    {
        caller.local = m_folder.Write("target", "x");
        const TraceCapture trace(EVT_ERROR);
        EXPECT_EQ(transfer(m_wire.Api(), caller), 0U) << trace;
        EXPECT_EQ(std::filesystem::file_size(m_folder / "target"), start + bytes);
        Reader target(m_folder / "target", start);
        Reader source(m_path, start);
        while (bytes > 0)
        {
            const std::string_view block = target.Next(bytes);
            ASSERT_TRUE(!block.empty() && source.Matches(block)) << bytes << " bytes before the end";
            bytes -= block.size();
        }
        EXPECT_TRUE(start == 0 || std::ifstream(m_folder / "target").get() == 'x');
    }

    // Whether all that came was right; how much of the file it was.
    std::atomic<bool> m_isRight = true;
    std::atomic<std::uint64_t> m_fileBytes = 0;

private:
    void Serve(RawConnection& connection, const std::string& head)
    {
        unsigned long long skip = 0;
        unsigned long long count = std::filesystem::file_size(m_path);
        if (head.starts_with("POST"))
        {
            constexpr unsigned end = 46; // after the file's bytes: the line's end and the boundary's
            static_cast<void>(std::sscanf(HeaderValue(head, "qd_offset").c_str(), "%llu", &skip));
            static_cast<void>(std::sscanf(HeaderValue(head, "qd_block_size").c_str(), "%llu", &count));
            Reader file(m_path, skip);
            connection.Skip(BodyLength(head) - count - end);
            connection.Skip(count, [&](std::string_view piece) { m_isRight = m_isRight && file.Matches(piece); });
            connection.Skip(end);
            m_fileBytes += count;
            return connection.Send(HttpReply(200, kReply));
        }
        static_cast<void>(std::sscanf(head.c_str(), "GET %*[^?]?skip=%llu&count=%llu", &skip, &count));
        connection.Send("HTTP/1.1 200 OK\r\nContent-Length: ");
        connection.Send(std::to_string(count) + "\r\n\r\n");
        for (Reader file(m_path, skip); count > 0;)
        {
            const std::string_view block = file.Next(count);
            connection.Send(block);
            count -= block.size();
        }
    }

    const TemporaryFolder m_folder;
    const std::filesystem::path m_path = m_folder / "source";

protected:
    const Library m_wire{AfterHandshake([this](RawConnection& connection, const std::string& head) { Serve(connection, head); })};
};

TEST_F(LargeTransfer, GoesUpWholeAndInChunks)
{
    ExpectNoGrowth([&](std::uint64_t size, Caller& caller) {
        // The first chunk passes 4 GiB by itself, the second starts beyond.
        const auto first = static_cast<std::int64_t>(size == kSize ? kFourGib + 1 : size / 2);
        for (const std::vector<Operation>& parts : {std::vector{Upload(0)}, std::vector{Chunk(0, first, 1), Chunk(first, kSize)}})
        {
            m_fileBytes = 0;
            for (const Operation& part : parts)
            {
                caller.item = MakeItem(static_cast<std::int64_t>(size));
                EXPECT_EQ(part(m_wire.Api(), caller), 0U);
            }
            EXPECT_TRUE(m_isRight);
            EXPECT_EQ(m_fileBytes, size);
        }
    });
}

TEST_F(LargeTransfer, ComesDownWhole)
{
    ExpectNoGrowth([&](std::uint64_t size, Caller& caller) { ExpectDown(Download(), caller, 0, size); });
}

TEST_F(LargeTransfer, ComesDownByARangeBeyondFourGib)
{
    ExpectNoGrowth([&](std::uint64_t size, Caller& caller) {
        const std::uint64_t skip = size == kSize ? kFourGib + 5 : 5;
        ExpectDown(Range(skip, 2 * kStride), caller, skip, 2 * kStride);
    });
}

} // namespace
