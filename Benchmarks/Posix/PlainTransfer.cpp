#include "PlainTransfer.h"

#include <curl/curl.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <stdexcept>

namespace
{

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File Open(const std::string& path, const char* mode)
{
    File file(std::fopen(path.c_str(), mode), std::fclose);
    if (file == nullptr)
        throw std::runtime_error("cannot open " + path);
    // The blocks are large: what the library buffers would only be copied once more.
    std::setvbuf(file.get(), nullptr, _IONBF, 0);
    return file;
}

std::size_t Append(char* bytes, std::size_t size, std::size_t count, void* text)
{
    static_cast<std::string*>(text)->append(bytes, size * count);
    return size * count;
}

std::size_t Ignore(char*, std::size_t size, std::size_t count, void*)
{
    return size * count;
}

class CurlTransfer final : public PlainTransfer
{
public:
    explicit CurlTransfer(const BenchmarkServer& server) : m_base(server.origin + ":" + std::to_string(server.port)) {}
    ~CurlTransfer() override { curl_easy_cleanup(m_curl); }

    CurlTransfer(const CurlTransfer&) = delete;
    CurlTransfer& operator=(const CurlTransfer&) = delete;

    std::string Get(const std::string& path) override
    {
        std::string body;
        curl_easy_reset(m_curl);
        curl_easy_setopt(m_curl, CURLOPT_WRITEFUNCTION, Append);
        curl_easy_setopt(m_curl, CURLOPT_WRITEDATA, &body);
        Perform(path);
        return body;
    }

    void Download(const std::string& path, const std::string& file) override
    {
        const File target = Open(file, "wb");
        curl_easy_reset(m_curl);
        curl_easy_setopt(m_curl, CURLOPT_WRITEDATA, target.get());
        Perform(path);
    }

    void Upload(const std::string& path, const std::string& file) override
    {
        const File source = Open(file, "rb");
        std::fseek(source.get(), 0, SEEK_END);
        const long length = std::ftell(source.get());
        std::rewind(source.get());
        curl_easy_reset(m_curl);
        curl_easy_setopt(m_curl, CURLOPT_UPLOAD, 1L);
        curl_easy_setopt(m_curl, CURLOPT_CUSTOMREQUEST, "POST");
        curl_easy_setopt(m_curl, CURLOPT_READDATA, source.get());
        curl_easy_setopt(m_curl, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(length));
        curl_easy_setopt(m_curl, CURLOPT_WRITEFUNCTION, Ignore);
        Perform(path);
    }

private:
    void Perform(const std::string& path)
    {
        curl_easy_setopt(m_curl, CURLOPT_URL, (m_base + path).c_str());
        curl_easy_setopt(m_curl, CURLOPT_FAILONERROR, 1L);
        // As every program with threads has to.
        curl_easy_setopt(m_curl, CURLOPT_NOSIGNAL, 1L);
        // No server of this machine is behind a proxy, and none answers "100 Continue".
        curl_easy_setopt(m_curl, CURLOPT_PROXY, "");
        // The variable that the library and the curl program take it from.
        if (const char* const trusted = std::getenv("SSL_CERT_FILE"))
            curl_easy_setopt(m_curl, CURLOPT_CAINFO, trusted);
        curl_slist expect{const_cast<char*>("Expect:"), nullptr};
        curl_easy_setopt(m_curl, CURLOPT_HTTPHEADER, &expect);
        const CURLcode result = curl_easy_perform(m_curl);
        if (result != CURLE_OK)
            throw std::runtime_error(curl_easy_strerror(result));
    }

    std::string m_base;
    CURL* m_curl = curl_easy_init();
};

} // namespace

std::unique_ptr<PlainTransfer> ConnectPlainly(const BenchmarkServer& server, bool /*testsEvent*/)
{
    return std::make_unique<CurlTransfer>(server);
}

double ProcessorSeconds()
{
    std::timespec time{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}
