#include "VersionNumberUtil.h"

#include "ComInit.h"
#include "TextConversion.h"
#include "Tracing.h"

#include "Platform/Platform.h"

#include <memory>
#include <optional>
#include <vector>
#include <wbemcli.h>
#include <wrl/client.h>

namespace
{

using Microsoft::WRL::ComPtr;

constexpr long kLongestWait = 10000; // milliseconds to wait for WMI's answer

struct BstrDeleter
{
    void operator()(OLECHAR* text) const { SysFreeString(text); }
};
using Bstr = std::unique_ptr<OLECHAR, BstrDeleter>;

Bstr MakeBstr(const wchar_t* text)
{
    Bstr copy(SysAllocString(text));
    if (!copy)
        throw std::bad_alloc();
    return copy;
}

struct Variant : VARIANT
{
    Variant() : VARIANT{} { VariantInit(this); }
    ~Variant() { VariantClear(this); }

    Variant(const Variant&) = delete;
    Variant& operator=(const Variant&) = delete;
};

bool Failed(const FunctionTraceScope& trace, const TraceFormat<HRESULT>& message, HRESULT result)
{
    if (FAILED(result))
        trace.Error(message, result);
    return FAILED(result);
}

// WMI requires impersonation. Set it on the proxy: a library must not change the process's defaults.
HRESULT AllowImpersonation(IUnknown* proxy)
{
    return CoSetProxyBlanket(proxy, RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE,
                             nullptr, EOAC_NONE);
}

// Runs a query in WMI's namespace of system classes and returns its first row; null if there is none.
ComPtr<IWbemClassObject> FirstRow(const FunctionTraceScope& trace, const wchar_t* query)
{
    ComPtr<IWbemLocator> locator;
    if (Failed(trace, "CoCreateInstance failed, error code: %d",
               CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_PPV_ARGS(&locator))))
        return nullptr;
    ComPtr<IWbemServices> services;
    if (Failed(trace, "ConnectServer failed, error code: %d",
               locator->ConnectServer(MakeBstr(L"ROOT\\CIMV2").get(), nullptr, nullptr, nullptr, WBEM_FLAG_CONNECT_USE_MAX_WAIT, nullptr,
                                      nullptr, &services)))
        return nullptr;
    if (Failed(trace, "CoSetProxyBlanket failed, error code: %d", AllowImpersonation(services.Get())))
        return nullptr;
    ComPtr<IEnumWbemClassObject> rows;
    if (Failed(trace, "ExecQuery failed, error code: %d",
               services->ExecQuery(MakeBstr(L"WQL").get(), MakeBstr(query).get(), WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY,
                                   nullptr, &rows)))
        return nullptr;
    // Ignore failure: some implementations return the enumerator without a proxy.
    static_cast<void>(AllowImpersonation(rows.Get()));
    ComPtr<IWbemClassObject> row;
    ULONG count = 0;
    const HRESULT result = rows->Next(kLongestWait, 1, &row, &count);
    if (Failed(trace, "Next failed, error code: %d", result))
        return nullptr;
    if (count == 0)
        trace.Error("WMI has no answer, code: %d", result);
    return row;
}

std::wstring ThisModulePath()
{
    HMODULE module = nullptr;
    if (GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                           reinterpret_cast<const wchar_t*>(&ThisModulePath), &module) == 0)
        return {};
    std::wstring path(MAX_PATH, L'\0');
    for (;;)
    {
        const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
        if (length < path.size())
        {
            path.resize(length);
            return path;
        }
        path.resize(2 * path.size());
    }
}

} // namespace

VersionNumber VersionNumberUtil::GetModuleVersion()
{
    return GetFileVersion(ThisModulePath());
}

VersionNumber VersionNumberUtil::GetFileVersion(const std::wstring& path)
{
    const FunctionTraceScope trace("VersionNumberUtil::GetFileVersion", Unit::VersionNumberUtil);
    DWORD ignored = 0;
    std::vector<std::byte> resource(GetFileVersionInfoSizeW(path.c_str(), &ignored));
    void* fixed = nullptr;
    UINT size = 0;
    if (resource.empty() || GetFileVersionInfoW(path.c_str(), 0, static_cast<DWORD>(resource.size()), resource.data()) == 0 ||
        VerQueryValueW(resource.data(), L"\\", &fixed, &size) == 0 || size < sizeof(VS_FIXEDFILEINFO))
    {
        trace.Info("No version resource in [%S], code: %d", path, GetLastError());
        return {};
    }
    const auto* info = static_cast<const VS_FIXEDFILEINFO*>(fixed);
    return {HIWORD(info->dwFileVersionMS), LOWORD(info->dwFileVersionMS), HIWORD(info->dwFileVersionLS), LOWORD(info->dwFileVersionLS)};
}

VersionNumber VersionNumberUtil::GetOsVersion()
{
    const FunctionTraceScope trace("VersionNumberUtil::GetOsVersion", Unit::VersionNumberUtil);
    const ComInit com;
    // WMI also works from a thread that uses another apartment model.
    if (com.Result() != RPC_E_CHANGED_MODE && Failed(trace, "CoInitializeEx failed, error code: %d", com.Result()))
        return {};
    const ComPtr<IWbemClassObject> system = FirstRow(trace, L"SELECT * FROM Win32_OperatingSystem");
    if (!system)
        return {};
    Variant version;
    if (Failed(trace, "Get failed, error code: %d", system->Get(L"Version", 0, &version, nullptr, nullptr)))
        return {};
    return version.vt == VT_BSTR && version.bstrVal != nullptr ? FromText(ToNarrow(version.bstrVal)) : VersionNumber();
}
