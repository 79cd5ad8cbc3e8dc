#include "Run.h"

#include "Platform/Platform.h"

#include <string>
#include <vector>

namespace
{

HANDLE endEvent = nullptr;

BOOL WINAPI OnConsoleControl(DWORD)
{
    return SetEvent(endEvent);
}

std::string ToUtf8(const wchar_t* text)
{
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    std::string result(static_cast<std::size_t>(size), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, result.data(), size, nullptr, nullptr);
    result.resize(result.empty() ? 0 : result.size() - 1);
    return result;
}

} // namespace

int wmain(int count, wchar_t** arguments)
{
    endEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    SetConsoleCtrlHandler(&OnConsoleControl, TRUE);

    std::vector<std::string> texts;
    for (int index = 1; index < count; ++index)
        texts.push_back(ToUtf8(arguments[index]));
    return ApplianceParts::Run(std::move(texts), [] { WaitForSingleObject(endEvent, INFINITE); });
}
