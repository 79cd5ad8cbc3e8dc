// Files beyond what 32 bits can count: right bytes under the right Content-Length, and no memory for them.
//
// The file is all zeros but for every 1 MiB, which begins with its own position: sparse on the disk, and each place known to either
// side without the other.

#include "LibraryOverWire.h"
#include "PeakMemory.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "TransferSupport.h"

#include <algorithm>
#include <atomic>
#include <cstring>

namespace
{

constexpr std::uint64_t kStride = 1 << 20;
constexpr std::uint64_t kFourGib = std::uint64_t{1} << 32;
constexpr std::uint64_t kSize = kFourGib + 3 * kStride + 12345;
constexpr std::size_t kBlock = 1 << 18;
constexpr std::uint64_t kAllowedGrowth = 4 << 20;

const std::string kZeros(kBlock, '\0');

// The bytes of the file from a position on, a block at most.
std::string_view PatternAt(std::uint64_t position, std::uint64_t bytes, std::string& block)
{
    block = kZeros;
    const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(bytes, kBlock));
    for (std::uint64_t stamp = position / kStride * kStride; stamp < position + size; stamp += kStride)
        for (std::uint64_t digit = 0; digit < sizeof stamp; ++digit)
            if (stamp + digit >= position && stamp + digit < position + size)
                block[static_cast<std::size_t>(stamp + digit - position)] = static_cast<char>(stamp >> (8 * digit));
    return std::string_view(block).substr(0, size);
}

// Compares what comes piece by piece with the file from a position on.
class Comparison
{
public:
    explicit Comparison(std::uint64_t position) : m_position(position) {}

    void Take(std::string_view piece)
    {
        for (; !piece.empty(); piece.remove_prefix(std::min(piece.size(), kBlock)))
        {
            const std::string_view expected = PatternAt(m_position, piece.size(), m_block);
            m_equal = m_equal && piece.starts_with(expected);
            m_position += expected.size();
        }
    }

    [[nodiscard]] bool EqualUpTo(std::uint64_t position) const { return m_equal && m_position == position; }

private:
    std::uint64_t m_position;
    bool m_equal = true;
    std::string m_block;
};

class LargeTransfer : public testing::Test
{
protected:
    LargeTransfer() { EXPECT_EQ(m_library.ShakeHands(), 0U); }

    // The file to send, as far as it is wanted.
    [[nodiscard]] Caller Sender(std::uint64_t size) const
    {
        const std::filesystem::path path = m_folder / "sent";
        std::ofstream file(path, std::ios::binary);
        std::string block;
        for (std::uint64_t position = 0; position < size; position += kStride)
        {
            file.seekp(static_cast<std::streamoff>(position));
            file << PatternAt(position, sizeof position, block);
        }
        file.close();
        std::filesystem::resize_file(path, size);
        Caller caller;
        caller.item = MakeItem(static_cast<std::int64_t>(size));
        caller.local = path.wstring();
        return caller;
    }

    // What is asked for comes at once the first time: what a process has once does not count as the transfer's.
    void ExpectNoGrowth(const std::function<void(std::uint64_t size)>& transfer)
    {
        transfer(24 * kStride);
        const std::uint64_t before = PeakMemory();
        ASSERT_GT(before, 0U);
        transfer(kSize);
        EXPECT_LT(PeakMemory() - before, kAllowedGrowth);
    }

    const TemporaryFolder m_folder;
    std::atomic<std::uint64_t> m_size = 0; // of the file on the server

    // Whether all that came or was sent was right; what a request was about.
    std::atomic<bool> m_isRight = true;
    std::atomic<std::uint64_t> m_fileBytes = 0;

private:
    // An upload's body: fields, the file's head, its bytes, the end.
    void ReceiveUpload(RawConnection& connection, const std::string& head)
    {
        const std::string offset = HeaderValue(head, "qd_offset");
        const std::uint64_t start = std::strtoull(offset.c_str(), nullptr, 10);
        std::uint64_t length = BodyLength(head);
        std::string part;
        do
        {
            part = connection.ReadHead();
            length -= part.size();
        } while (part.find("filename=") == std::string::npos);
        const std::string end = "\r\n--" + part.substr(part.rfind("--{") + 2, 38) + "--\r\n";
        length -= end.size();
        Comparison comparison(start);
        connection.Skip(length, [&](std::string_view piece) { comparison.Take(piece); });
        m_isRight = m_isRight && comparison.EqualUpTo(start + length) && connection.Read(end.size()) == end;
        m_fileBytes += length;
        connection.Send(HttpReply(200, kReply));
    }

    void SendRange(RawConnection& connection, std::uint64_t position, std::uint64_t count) const
    {
        connection.Send("HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(count) + "\r\n\r\n");
        std::string block;
        while (count > 0)
        {
            const std::string_view bytes = PatternAt(position, count, block);
            connection.Send(bytes);
            position += bytes.size();
            count -= bytes.size();
        }
    }

    void Serve(RawConnection& connection, const std::string& head)
    {
        if (head.starts_with("POST"))
            return ReceiveUpload(connection, head);
        unsigned long long skip = 0;
        unsigned long long count = m_size;
        if (const std::size_t query = head.find("?skip="); query != std::string::npos)
        {
            skip = std::strtoull(head.c_str() + query + 6, nullptr, 10);
            count = std::strtoull(head.c_str() + head.find("&count=") + 7, nullptr, 10);
        }
        SendRange(connection, skip, count);
    }

    RawServer m_server{AfterHandshake([this](RawConnection& connection, const std::string& head) { Serve(connection, head); })};

protected:
    const Library m_library{m_server};
};

TEST_F(LargeTransfer, GoesUpWhole)
{
    ExpectNoGrowth([&](std::uint64_t size) {
        Caller caller = Sender(size);
        m_fileBytes = 0;
        EXPECT_EQ(Upload(0)(m_library.Api(), caller), 0U);
        EXPECT_TRUE(m_isRight);
        EXPECT_EQ(m_fileBytes, size);
    });
}

TEST_F(LargeTransfer, GoesUpInChunks)
{
    ExpectNoGrowth([&](std::uint64_t size) {
        Caller caller = Sender(size);
        m_fileBytes = 0;
        // The first passes 4 GiB by itself, the second starts beyond.
        const std::uint64_t first = size == kSize ? kFourGib + 1 : size / 2;
        EXPECT_EQ(Chunk(0, static_cast<std::int64_t>(first), 1)(m_library.Api(), caller), 0U);
        EXPECT_EQ(m_fileBytes, first);
        EXPECT_EQ(Chunk(static_cast<std::int64_t>(first), static_cast<std::int64_t>(size))(m_library.Api(), caller), 0U);
        EXPECT_TRUE(m_isRight);
        EXPECT_EQ(m_fileBytes, size);
    });
}

TEST_F(LargeTransfer, ComesDownWhole)
{
    ExpectNoGrowth([&](std::uint64_t size) {
        m_size = size;
        Caller caller;
        caller.local = (m_folder / "target").wstring();
        const TraceCapture trace(EVT_ERROR);
        EXPECT_EQ(Download()(m_library.Api(), caller), 0U) << trace;
        std::ifstream file(m_folder / "target", std::ios::binary);
        Comparison comparison(0);
        std::string block = kZeros;
        while (file.read(block.data(), static_cast<std::streamsize>(block.size())) || file.gcount() != 0)
            comparison.Take(std::string_view(block).substr(0, static_cast<std::size_t>(file.gcount())));
        EXPECT_TRUE(comparison.EqualUpTo(size));
    });
}

TEST_F(LargeTransfer, ComesDownByARangeBeyondFourGib)
{
    ExpectNoGrowth([&](std::uint64_t size) {
        const std::uint64_t skip = size == kSize ? kFourGib + 5 : 5;
        constexpr std::uint64_t count = 2 * kStride;
        Caller caller;
        caller.local = m_folder.Write("target", "x");
        EXPECT_EQ(Range(skip, count)(m_library.Api(), caller), 0U);
        EXPECT_EQ(std::filesystem::file_size(m_folder / "target"), skip + count);
        std::ifstream file(m_folder / "target", std::ios::binary);
        EXPECT_EQ(file.get(), 'x');
        std::string bytes(count, 'x');
        file.seekg(static_cast<std::streamoff>(skip));
        file.read(bytes.data(), static_cast<std::streamsize>(count));
        Comparison comparison(skip);
        comparison.Take(bytes);
        EXPECT_TRUE(comparison.EqualUpTo(skip + count));
    });
}

} // namespace
