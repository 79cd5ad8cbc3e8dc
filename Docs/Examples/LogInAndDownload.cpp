#include <Attributes.h>
#include <QuendraHttp/QuendraHttp.h>
#include <TextConversion.h>
#include <iostream>

ResultCode LogInAndDownload(const char* server, int port, const std::wstring& user, const std::wstring& password, const std::wstring& path,
                            const std::wstring& localPath)
{
    const std::unique_ptr<IQuendraHttpAPI> api(CreateInstance(L"my-laptop"));
    api->SetServer(server); // "https://files.example.com"
    api->SetPort(port);     // 443

    std::wstring policy;
    std::uint32_t handshakeValue = 0;
    if (const ResultCode failed = api->Login(user, password, L"", L"my-laptop", policy, handshakeValue, {}, {}))
        return failed;

    std::shared_ptr<IServerAttributes> item;
    if (const ResultCode failed = api->GetPathAttributes(path, item))
        return failed;
    std::cout << ToNarrow(item->GetName()) << ": " << item->GetSize() << " bytes\n";
    return api->DownloadFile(path, localPath, item, item, L"", CancelEvent{}, nullptr);
}

int main(int count, char** arguments)
{
    if (count != 7)
    {
        std::cerr << "usage: LogInAndDownload SERVER PORT USER PASSWORD SERVER-PATH LOCAL-PATH\n";
        return 2;
    }
    const auto wide = [arguments](int i) { return ToWide(arguments[i], NarrowEncoding::ThreadAnsi); };
    const ResultCode result = LogInAndDownload(arguments[1], std::stoi(arguments[2]), wide(3), wide(4), wide(5), wide(6));
    std::cout << "result " << result << '\n';
    return result == Result::Success ? 0 : 1;
}
