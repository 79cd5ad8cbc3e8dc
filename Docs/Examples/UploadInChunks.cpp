// Sends a file in chunks, is cancelled within the second one, asks the server what it has and goes on from there. The event and the
// identifier come from the platform: on Windows from Windows, on Linux from quendra_platform, under the same names in a namespace.

#include <Attributes.h>
#include <QuendraHttp/Platform.h>
#include <QuendraHttp/QuendraHttp.h>
#include <TextConversion.h>
#include <algorithm>
#include <filesystem>
#include <iostream>

using namespace Quendra::Platform; // on Windows the names are the system's own

namespace
{

constexpr std::int64_t kChunkSize = 40000; // for show; a megabyte and more is usual

// Stands for a person who presses Cancel: signals the event once more than so many bytes are on their way. Any thread may signal it.
class CancelAfter final : public IProgressCallback
{
public:
    CancelAfter(HANDLE event, std::int64_t bytes) : m_event(event), m_bytes(static_cast<std::uint64_t>(bytes)) {}
    void OnBlock(std::uint64_t, std::uint64_t position) override
    {
        if (position > m_bytes)
            SetEvent(m_event);
    }

private:
    HANDLE m_event;
    std::uint64_t m_bytes;
};

struct Upload
{
    std::wstring localPath;
    std::wstring serverPath;
    Quendra::UploadId id{}; // whoever resumes needs it, also after a restart of the program
    std::int64_t size = 0;
};

// Sends what lies behind the offset, chunk by chunk.
ResultCode Send(IQuendraHttpAPI& api, const Upload& upload, std::int64_t offset, const CancelEvent& cancel,
                const std::shared_ptr<IProgressCallback>& progress)
{
    do
    {
        const std::shared_ptr<IServerAttributes> attributes = std::make_shared<CServerAttributes>();
        attributes->SetSize(upload.size); // times and attribute bits, where the program has them
        attributes->SetAttributes(0x80);
        std::shared_ptr<IServerAttributes> item = attributes;
        std::int64_t length = std::min(kChunkSize, upload.size - offset);
        const std::int32_t beginFlag = offset == 0 ? 1 : 0;
        if (const ResultCode failed =
                api.ResumableUpload(upload.localPath, upload.serverPath, item, upload.id, &offset, &length, beginFlag, cancel, progress))
            return failed;
        offset += length;
    } while (offset < upload.size);
    return Result::Success;
}

ResultCode SendWithBreak(IQuendraHttpAPI& api, const Upload& upload, HANDLE event)
{
    const CancelEvent cancel{event};
    const auto person = std::make_shared<CancelAfter>(event, kChunkSize);
    if (const ResultCode result = Send(api, upload, 0, cancel, person); result != Result::Cancelled)
        return result;

    ResetEvent(event);
    std::int64_t offset = 0;
    std::uint32_t locked = 0;
    if (const ResultCode failed = api.GetResumableUploadMetadata(upload.serverPath, upload.id, &offset, &locked))
        return failed;
    std::cout << "cancelled; the server has " << offset << " of " << upload.size << " bytes\n";
    return Send(api, upload, offset, cancel, nullptr);
}

} // namespace

int main(int count, char** arguments)
{
    if (count != 7)
    {
        std::cerr << "usage: UploadInChunks SERVER PORT USER PASSWORD LOCAL-PATH SERVER-PATH\n";
        return 2;
    }
    const auto wide = [arguments](int i) { return ToWide(arguments[i], NarrowEncoding::ThreadAnsi); };
    Upload upload{wide(5), wide(6)};
    upload.size = static_cast<std::int64_t>(std::filesystem::file_size(upload.localPath));

    const HANDLE event = CreateEventW(nullptr, true, false, nullptr); // stays signalled until it is reset
    if (event == nullptr || CoCreateGuid(&upload.id) != S_OK)
        return 1;
    const std::unique_ptr<IQuendraHttpAPI> api(CreateInstance(L"my-laptop"));
    api->SetServer(arguments[1]);
    api->SetPort(std::stoi(arguments[2]));
    std::wstring policy;
    std::uint32_t handshakeValue = 0;
    ResultCode result = api->Login(wide(3), wide(4), L"", L"my-laptop", policy, handshakeValue, {}, {});
    if (result == Result::Success)
        result = SendWithBreak(*api, upload, event);
    CloseHandle(event);
    std::cout << "result " << result << '\n';
    return result == Result::Success ? 0 : 1;
}
