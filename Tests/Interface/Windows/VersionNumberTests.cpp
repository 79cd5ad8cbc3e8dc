// Version resources, and the system's version in each state of COM and WMI.

#include "ComInit.h"
#include "TraceCapture.h"
#include "Tracing.h"
#include "VersionNumberUtil.h"

#include <gtest/gtest.h>

#include <wbemcli.h>

#if defined(__GNUC__)
#pragma GCC diagnostic ignored "-Wnon-virtual-dtor" // COM's interfaces have no destructor
#endif

namespace
{

// Replaces WMI in this process. Its creation or its connection fails.
class BrokenWmi final : public IClassFactory, public IWbemLocator
{
public:
    BrokenWmi(HRESULT made, HRESULT connected) : m_made(made), m_connected(connected)
    {
        auto* const maker = static_cast<IClassFactory*>(this);
        EXPECT_EQ(CoRegisterClassObject(CLSID_WbemLocator, maker, CLSCTX_INPROC_SERVER, REGCLS_MULTIPLEUSE, &m_registration), S_OK);
    }
    ~BrokenWmi() { CoRevokeClassObject(m_registration); }

    BrokenWmi(const BrokenWmi&) = delete;
    BrokenWmi& operator=(const BrokenWmi&) = delete;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override
    {
        *object = id == IID_IWbemLocator                          ? static_cast<void*>(static_cast<IWbemLocator*>(this))
                  : id == IID_IUnknown || id == IID_IClassFactory ? static_cast<void*>(static_cast<IClassFactory*>(this))
                                                                  : nullptr;
        return *object != nullptr ? S_OK : E_NOINTERFACE;
    }
    // The test outlives whoever refers to this.
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
    HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown*, REFIID id, void** object) override
    {
        *object = nullptr;
        return FAILED(m_made) ? m_made : QueryInterface(id, object);
    }
    HRESULT STDMETHODCALLTYPE LockServer(BOOL) override { return S_OK; }
    HRESULT STDMETHODCALLTYPE ConnectServer(const BSTR, const BSTR, const BSTR, const BSTR, long, const BSTR, IWbemContext*,
                                            IWbemServices** services) override
    {
        *services = nullptr;
        return m_connected;
    }

private:
    HRESULT m_made;
    HRESULT m_connected;
    DWORD m_registration = 0;
};

TEST(VersionNumbers, AreReadFromTheResourcesOfTheBuild)
{
    const VersionNumber built = VersionNumberUtil::FromText(QUENDRA_VERSION);
    for (const wchar_t* file : {L"QuendraHttp.dll", L"quendra.exe"})
    {
        const VersionNumber version = VersionNumberUtil::GetFileVersion(file);
        EXPECT_EQ(version.count, 4U);
        EXPECT_EQ(version.components, built.components);
    }
    TraceCapture trace;
    EXPECT_EQ(VersionNumberUtil::GetModuleVersion().count, 0U) << "this program has no resource";
    EXPECT_EQ(VersionNumberUtil::GetFileVersion(L"C:\\none.dll").count, 0U);
    EXPECT_TRUE(trace.Mentions("No version resource in [C:\\none.dll], code: ")) << trace;
}

TEST(VersionNumbers, OfTheSystemAreFoundWhereComRunsWithAnotherModel)
{
    const ComInit apartment(COINIT_APARTMENTTHREADED);
    ASSERT_EQ(apartment.Result(), S_OK);
    TraceCapture trace;
    EXPECT_GE(VersionNumberUtil::GetOsVersion().count, 2U);
    EXPECT_TRUE(trace.Messages().empty()) << trace;
    EXPECT_EQ(ComInit(COINIT_APARTMENTTHREADED).Result(), S_FALSE) << "the thread's own model stays";
}

TEST(VersionNumbers, OfTheSystemLeaveTheThreadsComAsItWas)
{
    static_cast<void>(VersionNumberUtil::GetOsVersion());
    EXPECT_EQ(ComInit(COINIT_APARTMENTTHREADED).Result(), S_OK);
    const ComInit same;
    ASSERT_EQ(same.Result(), S_OK);
    EXPECT_NE(VersionNumberUtil::GetOsVersion().count, 0U);
    EXPECT_EQ(ComInit().Result(), S_FALSE);
}

TEST(VersionNumbers, OfTheSystemAreAbsentWithoutWmi)
{
    const ComInit com;
    const std::tuple<HRESULT, HRESULT, const char*> cases[] = {
        {REGDB_E_CLASSNOTREG, S_OK, "CoCreateInstance failed, error code: -2147221164"},
        {S_OK, HRESULT_FROM_WIN32(ERROR_SERVICE_DISABLED), "ConnectServer failed, error code: -2147023838"}};
    for (const auto& [made, connected, message] : cases)
    {
        const BrokenWmi wmi(made, connected);
        TraceCapture trace;
        EXPECT_EQ(VersionNumberUtil::GetOsVersion().count, 0U);
        EXPECT_EQ(trace.Messages(), std::vector<std::string>{message});
    }
}

} // namespace
