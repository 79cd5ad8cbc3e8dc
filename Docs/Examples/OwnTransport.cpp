// A transport of a caller's own: the library's requests are answered from a table in memory. Docs/OwnTransport.md walks through it.
// The program lists a folder, uploads a file and downloads it again, all without a network.

#include <Attributes.h>
#include <QuendraHttp/Platform.h>
#include <QuendraHttp/QuendraHttp.h>
#include <QuendraHttp/Transport.h>
#include <TextConversion.h>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <map>
#include <mutex>

using namespace Quendra::Platform; // on Windows the names are the system's own

namespace
{

constexpr const char* kItem = R"({"name":"note","size":5,"attributes":128,"permissions":"WRITE","revision":"7",
    "creation_time":"2024-02-29T12:00:00.0Z","modification_time":"2024-02-29T12:00:00.0Z"})";

// What this server answers, by verb and path. Everything else is 404.
const std::map<std::string, std::string> kAnswers = {
    {"GET /endpoints", R"({"sync":{"1.3":{"path":"/sync","tos":0}}})"},
    {"GET /sync/init", R"({"device_token_auth":false})"},
    {"POST /sync/sessions", R"({"session_token":"secret"})"},
    {"GET /sync/folders/home?type=all", std::string(R"({"name":"home","directory":true,"creation_time":"2024-01-01T00:00:00.0Z",
        "modification_time":"2024-01-01T00:00:00.0Z","contents":[)") +
                                            kItem + "]}"},
    {"POST /sync/folders/home/note", kItem},
    {"GET /sync/folders/home/note?revision=7", "hello"},
};

// A failing step leaves its reason as the thread's last error, too.
ResultCode Fail(ResultCode error)
{
    SetLastError(error);
    return error;
}

class MemorySession final : public IWinHttpSession
{
public:
    ResultCode Initialise() override { return Result::Success; }
    int SetTimeouts(std::int32_t, std::int32_t, std::int32_t, std::int32_t) override { return 1; } // nothing here can wait
    void SetSessionToken(const std::wstring& token) override
    {
        const std::lock_guard guard(m_lock);
        m_token = token;
    }
    std::wstring GetSessionToken() override
    {
        const std::lock_guard guard(m_lock);
        return m_token;
    }
    void* GetHandle() override { return nullptr; } // of the library's own transport only

private:
    std::mutex m_lock;
    std::wstring m_token;
};

class MemoryConnection final : public IWinHttpConnection
{
public:
    ResultCode Initialise(const std::wstring&, std::uint16_t, const std::shared_ptr<IWinHttpSession>&, std::uint64_t,
                          std::uint64_t) override
    {
        return Result::Success;
    }
    void* GetHandle() override { return nullptr; }
};

class MemoryRequest final : public IWinHttpRequest
{
public:
    explicit MemoryRequest(std::shared_ptr<IWinHttpSession> session) : m_session(std::move(session)) {}

    ResultCode Initialise(const std::wstring& path, const std::wstring& verb, const std::shared_ptr<IWinHttpConnection>&, const wchar_t*,
                          std::uint32_t) override
    {
        m_line = ToNarrow(verb) + ' ' + ToNarrow(path);
        return Result::Success;
    }
    ResultCode AddHeader(const std::wstring&, const std::wstring&) override { return Result::Success; }

    // A form: the body is collected and goes out with GetResponse. A network transport encodes the value here.
    ResultCode AppendFormData(const char* name, const std::wstring& value, bool isLast) override
    {
        m_body.append(name).append("=").append(ToNarrow(value)).append(isLast ? "" : "&");
        return Result::Success;
    }
    std::uint32_t GetPostDataLength() override { return static_cast<std::uint32_t>(m_body.size()); }

    // A streamed body: its length is announced, then the collected bytes and the file follow in turn.
    ResultCode StartRequest(std::uint64_t contentLength) override
    {
        m_announced = contentLength;
        return Result::Success;
    }
    ResultCode SendPostData() override
    {
        m_sent += m_body.size();
        m_body.clear();
        return Result::Success;
    }
    ResultCode AddMultipartHeaders(bool) override { return Result::Success; }
    ResultCode AddMultipartFormData(const wchar_t* name, const wchar_t* value) override
    {
        return AddMultipartFormData(ToNarrow(name).c_str(), ToNarrow(value).c_str());
    }
    ResultCode AddMultipartFormData(const char* name, const char* value) override
    {
        m_body.append(name).append("=").append(value).append("\n");
        return Result::Success;
    }
    ResultCode SendMultipartFile(const char* fieldName, const std::wstring& path, const std::wstring& fileName,
                                 const CancelEvent* cancelEvent, const std::shared_ptr<IProgressCallback>& progress,
                                 std::uint64_t* sizeOut) override
    {
        const std::int64_t offset = 0;
        std::error_code error;
        const auto length = static_cast<std::int64_t>(std::filesystem::file_size(path, error));
        return error ? Fail(2) : SendMultipartFile(fieldName, path, fileName, cancelEvent, &offset, &length, progress, sizeOut);
    }
    ResultCode SendMultipartFile(const char*, const std::wstring&, const std::wstring&, const CancelEvent* cancelEvent, const std::int64_t*,
                                 const std::int64_t* length, const std::shared_ptr<IProgressCallback>& progress,
                                 std::uint64_t* sizeOut) override
    {
        const auto size = static_cast<std::uint64_t>(*length);
        if (sizeOut != nullptr)
        {
            *sizeOut = size;
            return Result::Success;
        }
        if (cancelEvent != nullptr && cancelEvent->event != nullptr && WaitForSingleObject(cancelEvent->event, 0) == WAIT_OBJECT_0)
            return Fail(Result::Cancelled);
        m_sent += size;
        if (progress)
            progress->OnBlock(size, size);
        return Result::Success;
    }
    ResultCode EndMultipart() override
    {
        m_body += kEnd;
        return Result::Success;
    }
    std::uint32_t GetEndMultipartLength() override { return static_cast<std::uint32_t>(std::strlen(kEnd)); }

    // The answer, into memory. The library frees it with `free`.
    ResultCode GetResponse(ResponseBuffer& response) override
    {
        m_body.clear();
        Answer();
        return ReadResponse(response);
    }
    ResultCode ReceiveResponse(ResponseBuffer& response) override
    {
        if (m_sent != m_announced)
            return Fail(Result::ConnectionBroken);
        Answer();
        return ReadResponse(response);
    }
    ResultCode ReadResponse(ResponseBuffer& response) override
    {
        response = {};
        if (m_reply.empty())
            return Result::Success;
        response.data = static_cast<char*>(std::malloc(m_reply.size() + 1));
        if (response.data == nullptr)
            return Fail(Result::NotEnoughMemory);
        std::memcpy(response.data, m_reply.c_str(), m_reply.size() + 1);
        response.length = m_reply.size();
        return Result::Success;
    }

    // The answer, into a file.
    ResultCode SendRequestGetResponse(const std::wstring& path, const CancelEvent* cancelEvent,
                                      const std::shared_ptr<IProgressCallback>& progress, bool, std::uint32_t offsetLow,
                                      std::uint32_t offsetHigh) override
    {
        return GetResponse(path, cancelEvent, progress, offsetLow, offsetHigh);
    }
    ResultCode GetResponse(const std::wstring& path, const CancelEvent*, const std::shared_ptr<IProgressCallback>& progress,
                           std::uint32_t offsetLow, std::uint32_t offsetHigh) override
    {
        Answer();
        if (m_status != 200)
            return Result::RefusalBase + m_status;
        const auto offset = static_cast<std::streamoff>((std::uint64_t{offsetHigh} << 32) | offsetLow);
        const auto mode = offset == 0 ? std::ios::out : std::ios::in | std::ios::out;
        std::fstream file(std::filesystem::path(path), mode | std::ios::binary);
        file.seekp(offset);
        if (!file.write(m_reply.data(), static_cast<std::streamsize>(m_reply.size())).flush())
            return Fail(29);
        if (progress)
            progress->OnBlock(m_reply.size(), m_reply.size());
        return Result::Success;
    }
    std::uint32_t GetHTTPStatus() override { return m_status; }
    void Close() override {} // nothing here blocks, so that there is nothing to end

private:
    static constexpr const char* kEnd = "--end--\n";

    // A network transport sends the token as the cookie "session_token" with every request that has one.
    void Answer()
    {
        const auto found = kAnswers.find(m_line);
        m_status = found != kAnswers.end() ? 200 : 404;
        m_reply = found != kAnswers.end() ? found->second : "{}";
        std::cout << m_line << (m_session->GetSessionToken().empty() ? "" : " (with a session)") << ": " << m_status << '\n';
    }

    std::shared_ptr<IWinHttpSession> m_session;
    std::string m_line;
    std::string m_body;
    std::uint64_t m_announced = 0;
    std::uint64_t m_sent = 0;
    std::uint32_t m_status = 0;
    std::string m_reply;
};

class MemoryFactory final : public IWinHttpFactory
{
public:
    std::shared_ptr<IWinHttpSession> CreateSession() override { return std::make_shared<MemorySession>(); }
    std::shared_ptr<IWinHttpConnection> CreateConnection() override { return std::make_shared<MemoryConnection>(); }
    std::shared_ptr<IWinHttpRequest> CreateRequest(const std::shared_ptr<IWinHttpSession>& session) override
    {
        return std::make_shared<MemoryRequest>(session);
    }
};

// Ends the program where a step of it did not do what it should.
void Check(bool isRight, const char* step, ResultCode result = Result::Success)
{
    if (isRight && result == Result::Success)
        return;
    std::cerr << step << " failed, result " << result << '\n';
    std::exit(1);
}

} // namespace

int main()
{
    const std::unique_ptr<IQuendraHttpAPI> api(CreateInstanceWithFactory(std::make_shared<MemoryFactory>(), L"my-laptop"));
    Check(api != nullptr, "CreateInstanceWithFactory");
    api->SetServer("memory");
    api->SetPort(80);

    std::wstring policy;
    std::uint32_t handshakeValue = 0;
    Check(true, "Login", api->Login(L"ann", L"secret", L"", L"my-laptop", policy, handshakeValue, {}, {}));

    ServerItemList items;
    std::shared_ptr<IServerAttributes> folder;
    Check(true, "GetPathListing", api->GetPathListing(L"/home", items, folder, nullptr));
    Check(items.size() == 1 && items.front()->GetName() == L"note", "The listing");

    const std::filesystem::path local = std::filesystem::temp_directory_path() / ("note-" + std::to_string(std::rand()));
    std::ofstream(local, std::ios::binary) << "hello";
    std::shared_ptr<IServerAttributes> item = items.front();
    const std::uint32_t delta = 0;
    const ResultCode uploaded = api->UploadFile(local.wstring(), L"/home/note", item, &delta, CancelEvent{}, nullptr);
    const ResultCode downloaded = api->DownloadFile(L"/home/note", local.wstring(), item, item, L"", CancelEvent{}, nullptr);
    std::ifstream stream(local, std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(stream), {}};
    stream.close();
    std::filesystem::remove(local);
    Check(true, "UploadFile", uploaded);
    Check(text == "hello", "DownloadFile", downloaded);

    const ResultCode missing = api->GetPathAttributes(L"/nowhere", item);
    Check(missing == Result::RefusalBase + 404, "The refusal", missing == 20404 ? 0 : missing);
    std::cout << "done\n";
}
