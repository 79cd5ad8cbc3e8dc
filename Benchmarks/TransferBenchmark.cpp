// What a whole file costs through the library, beside the least that it could cost: rounds of the two in turn, against the same
// servers and with the same files.
//
//     transfer URL FOLDER [MEBIBYTES] [ROUNDS]
//
// Downloads come from the web server at URL, uploads go to a server in this program that throws them away. `Benchmarks/transfer.sh`
// starts the web server and runs the program on Linux and under Wine.

#include "Attributes.h"
#include "PlainTransfer.h"
#include "RawServer.h"
#include "TextConversion.h"

#include "Platform/Platform.h"
#include "QuendraHttp/QuendraHttp.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

constexpr std::uint64_t kMebibyte = std::uint64_t{1} << 20U;
constexpr const char* kItem = R"({"name":"a","creation_time":"2020-01-02T03:04:05.6Z","modification_time":"2020-01-02T03:04:05.6Z"})";

struct Cost
{
    double elapsed = 0;
    double processor = 0;
};

Cost Measure(const std::function<void()>& work)
{
    const auto start = std::chrono::steady_clock::now();
    const double processor = ThreadSeconds();
    work();
    return {std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), ThreadSeconds() - processor};
}

template <class Value> double Median(const std::vector<Cost>& costs, Value value)
{
    std::vector<double> values;
    std::transform(costs.begin(), costs.end(), std::back_inserter(values), value);
    std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2), values.end());
    return values[values.size() / 2];
}

// Rounds in turn, so that what else the machine does falls on both; the first warms up and does not count.
void Compare(const char* what, double mebibytes, int rounds, const std::function<void()>& library, const std::function<void()>& plain)
{
    std::vector<Cost> ours;
    std::vector<Cost> theirs;
    for (int round = 0; round <= rounds; ++round)
    {
        ours.push_back(Measure(library));
        theirs.push_back(Measure(plain));
    }
    ours.erase(ours.begin());
    theirs.erase(theirs.begin());
    const auto elapsed = [](const Cost& cost) { return cost.elapsed; };
    const auto processor = [](const Cost& cost) { return cost.processor; };
    std::printf("%-9s library %7.0f MiB/s %6.3f s of processor, %s %7.0f MiB/s %6.3f s; ratio of throughput %.2f, of processor time %.2f\n",
                what, mebibytes / Median(ours, elapsed), Median(ours, processor), kPlainName, mebibytes / Median(theirs, elapsed),
                Median(theirs, processor), Median(theirs, elapsed) / Median(ours, elapsed),
                Median(ours, processor) / Median(theirs, processor));
    std::fflush(stdout);
}

void Require(ResultCode code, const char* operation)
{
    if (code != Result::Success)
        throw std::runtime_error(std::string(operation) + " failed: " + std::to_string(code));
}

// The library, past its handshake.
class Client
{
public:
    explicit Client(const BenchmarkServer& server) : m_api(CreateInstance(L"benchmark"))
    {
        m_api->SetServer(server.host.c_str());
        m_api->SetPort(server.port);
        std::uint32_t mode = 0;
        std::uint32_t value = 0;
        Require(m_api->Init(mode, value), "Init");
    }
    ~Client()
    {
        m_api->Release();
        CloseHandle(m_cancel.event);
    }

    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    void Download(const std::string& file) const
    {
        std::shared_ptr<IServerAttributes> taken;
        Require(m_api->DownloadFile(L"/data", ToWide(file), std::make_shared<CServerAttributes>(), taken, L"", m_cancel, nullptr),
                "DownloadFile");
    }

    void Upload(const std::string& file) const
    {
        std::shared_ptr<IServerAttributes> item = std::make_shared<CServerAttributes>();
        const std::uint32_t asDelta = 0;
        Require(m_api->UploadFile(ToWide(file), L"/data", item, &asDelta, m_cancel, nullptr), "UploadFile");
    }

private:
    IQuendraHttpAPI* m_api;
    const CancelEvent m_cancel{CreateEventW(nullptr, TRUE, FALSE, nullptr)}; // asked once a block, and never signalled
};

void AnswerOneConnection(RawConnection& connection)
{
    for (;;)
    {
        const std::string head = connection.ReadHead();
        connection.Skip(std::strtoull(HeaderValue(head, "Content-Length").c_str(), nullptr, 10));
        if (head.starts_with("GET /endpoints "))
            connection.Send(HttpReply(200, R"({"sync":{"1.3":{"path":"/sync"}}})"));
        else
            connection.Send(HttpReply(200, head.starts_with("GET ") ? R"({"device_token_auth":true})" : kItem));
    }
}

BenchmarkServer ParseUrl(const std::string& url)
{
    const std::size_t host = url.find("//") + 2;
    const std::size_t colon = url.find(':', host);
    if (host == 1 || colon == std::string::npos)
        throw std::runtime_error("a URL with a port is needed, as http://127.0.0.1:8080");
    return {url.substr(host, colon - host), static_cast<std::uint16_t>(std::stoi(url.substr(colon + 1)))};
}

void Run(const std::string& url, const std::string& folder, std::uint64_t mebibytes, int rounds)
{
    const std::string file = folder + "/transferred";
    const auto size = static_cast<double>(mebibytes);
    {
        const BenchmarkServer source = ParseUrl(url);
        const Client client(source);
        const auto plain = ConnectPlainly(source);
        Compare(
            "download", size, rounds, [&] { client.Download(file); }, [&] { plain->Download("/sync/folders/data", file); });
    }
    {
        std::vector<char> block(kMebibyte, 'q');
        std::ofstream out(file, std::ios::binary);
        for (std::uint64_t i = 0; i < mebibytes; ++i)
            out.write(block.data(), static_cast<std::streamsize>(block.size()));
    }
    RawServer sink(AnswerOneConnection);
    const BenchmarkServer target{"127.0.0.1", sink.Port()};
    const Client client(target);
    const auto plain = ConnectPlainly(target);
    Compare(
        "upload", size, rounds, [&] { client.Upload(file); }, [&] { plain->Upload("/sync/folders/data", file); });
    std::remove(file.c_str());
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3)
    {
        std::fputs("usage: transfer URL FOLDER [MEBIBYTES] [ROUNDS]\n", stderr);
        return 2;
    }
    try
    {
        Run(argv[1], argv[2], argc > 3 ? std::strtoull(argv[3], nullptr, 10) : 1024, argc > 4 ? std::atoi(argv[4]) : 5);
        return 0;
    }
    catch (const std::exception& problem)
    {
        std::fprintf(stderr, "transfer: %s\n", problem.what());
        return 1;
    }
}
