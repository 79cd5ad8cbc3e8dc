// Each call to the platform fails once in each operation: what that ends in, and that the next operation works.

#include "CaseFile.h"
#include "Operations.h"
#include "PlatformSteps.h"
#include "RegistryValues.h"
#include "ScriptedWinHttp.h"
#include "Settings.h"
#include "Tracing.h"

#include "Eventing/EventSink.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <optional>
#include <set>

namespace
{

constexpr bool kIsWindows = std::filesystem::path::preferred_separator == '\\';
#ifdef __has_feature // ThreadSanitizer has allocation operators of its own, which do not fail
constexpr bool kMemoryFails = !kIsWindows && !__has_feature(thread_sanitizer);
#else
constexpr bool kMemoryFails = !kIsWindows;
#endif

ResultCode Configure(Api& api)
{
    for (const ResultCode code : {api.SetServer("http://server"), api.SetPort(8080), api.SetDeviceName(L"a longer name"),
                                  api.SetClientTag("a tag of some length"), api.SetSessionToken(L"old")})
        if (code != Result::Success)
            return code;
    return Result::Success;
}

const std::map<std::string, Operation> kOperations = [] {
    auto operations = PathOperations();
    operations.merge(AllTransfers());
    operations["handshake"] = [](Api& api, Caller& caller) {
        const ResultCode code = Configure(api);
        return code != Result::Success ? code : ShakeHands(api, caller);
    };
    operations["instance"] = [](Api&, Caller& caller) -> ResultCode {
        Api* const api = CreateInstance(L"a device of some length");
        if (api == nullptr)
            return Result::NotEnoughMemory;
        const ResultCode code = api->GetSessionToken(caller.text);
        api->Release();
        return code;
    };
    return operations;
}();

class Steps : public testing::Test
{
protected:
    Steps()
    {
        static_cast<void>(m_folder.Write("sent", Pattern(20'000)));
        static_cast<void>(m_folder.Write("target", ""));
        // On Windows, where its calls do not fail, other tests would meet the value.
        if (!kIsWindows)
            m_registry.emplace().Set(RegistryValues::Root::User, "OfflineMappointTimeout", 5);
        Configure(m_api.Api());
        EXPECT_EQ(Perform("handshake"), "0");
    }
    ~Steps() override { CloseEventSink(std::exchange(EventProviderHandle, 0)); }

    // Performs an operation, of whose calls the n-th fails: its code and what it has given. The errors that were
    // traced are kept, too.
    std::string Perform(const std::string& name, std::size_t failing = 0)
    {
        g_script = {};
        for (const Json::Value& reply : m_cases["replies"].get(name, m_cases["replies"]["others"]))
            g_script.replies.push_back({200, reply.asString(), 0, {}});
        m_api->SetSessionToken(L"old");
        const Event event;
        Caller caller;
        caller.item = MakeItem(20'000, IsDownload(name) ? "7" : "");
        caller.signature = (m_folder / "sent").wstring();
        caller.local = (m_folder / (IsDownload(name) ? "target" : "sent")).wstring();
        caller.cancel = event;
        m_steps = {failing, {}};
        m_errors.clear();
        std::string outcome = "not called";
        try
        {
            t_steps = &m_steps;
            const ResultCode code = kOperations.at(name)(m_api.Api(), caller);
            t_steps = nullptr;
            outcome = std::to_string(code);
        }
        catch (const std::bad_alloc&)
        {
            t_steps = nullptr; // The caller has no memory for its arguments: the library throws nothing.
        }
        return outcome + (caller.Outputs().empty() ? "" : " ") + caller.Outputs();
    }

    const Json::Value m_cases = ReadCaseFile("Steps.json");
    PlatformSteps m_steps;
    std::string m_errors;

private:
    // A message without what differs from run to run, and without the values of headers.
    std::string Comparable(std::string message) const
    {
        const std::string path = (m_folder / "sent").string();
        if (const std::size_t at = message.find(path); at != std::string::npos)
            message.replace(at, path.size(), "$sent");
        if (const std::size_t at = message.find("header ["); at != std::string::npos)
            message.replace(at, message.find("], ") - at, "header [...");
        return message;
    }

    static void Take(void* context, const Eventing::Event* event)
    {
        const Uncounted pause;
        auto& self = *static_cast<Steps*>(context);
        if (event->descriptor->level == EVT_ERROR.level)
            self.m_errors += "; " + self.Comparable(event->message);
    }

    const TemporaryFolder m_folder;
    std::optional<RegistryValues> m_registry;
    const Eventing::ProviderHandle m_sink = EventProviderHandle = OpenEventSink(EVT_INFO.level, Eventing::kAnyKeyword, &Take, this);
    const Instance m_api{CreateInstance(L"device")};
};

TEST_F(Steps, EndInTheirCodesWhereTheyFailAndTheNextOperationWorks)
{
    std::map<std::string, std::string> rows; // outcomes by the call and where it is
    for (const std::string& call : m_cases["calls"].getMemberNames())
        for (const std::string& outcome : m_cases["calls"][call].getMemberNames())
            for (const Json::Value& place : m_cases["calls"][call][outcome])
                rows[call + ", " + place.asString()] = outcome;
    std::set<std::string> met;
    std::set<std::string> endings; // where memory runs out
    int count = 0;
    for (const auto& [name, run] : kOperations)
    {
        const std::string whole = Perform(name);
        EXPECT_EQ(g_script.body.find("revision"), std::string::npos) << "of an item that has none";
        std::set<std::string> allowed;
        for (const std::string& group : {std::string("others"), name})
            for (const Json::Value& each : m_cases["memory"][group])
                allowed.insert(each.asString());
        std::string outcome;
        for (std::size_t step = 1; outcome = Perform(name, step), m_steps.HasFailed(); ++step, ++count)
        {
            const auto failed = m_steps.taken.begin() + static_cast<std::ptrdiff_t>(step);
            const std::string call = failed[-1];
            const auto number = std::count(m_steps.taken.begin(), failed, call);
            const std::string place = call + ", " + name + " " + std::to_string(number);
            SCOPED_TRACE(place);
            if (outcome.starts_with(whole))
                outcome.replace(0, whole.size(), "done");
            if (call == "new" || call == "malloc" || call == "realloc")
            {
                EXPECT_TRUE(allowed.contains(outcome)) << outcome;
                endings.insert(outcome);
            }
            else
            {
                const std::string row = rows.contains(place) ? place : call + ", others";
                std::string end = outcome + m_errors;
                for (auto later = failed; later != m_steps.taken.end() && outcome != "done"; ++later)
                    end += std::string_view(*later).starts_with("WinHttp") ? std::string("; then ") + *later : "";
                EXPECT_EQ(end, rows[row]);
                met.insert(row);
            }
            const bool isSent = outcome != "done" || call == "WinHttpWriteData" || g_script.sendHeaders.empty() ||
                                g_script.sendHeaders.back().empty() ||
                                g_script.sendHeaders.back() == L"Content-Length: " + std::to_wstring(g_script.body.size()) + L"\r\n";
            EXPECT_TRUE(isSent) << "what was announced";
            EXPECT_TRUE(call != "CoCreateGuid" || name != "upload" || g_script.body.ends_with("\r\n----\r\n")) << "an empty boundary";
            EXPECT_EQ(Perform(name), whole) << "the next time";
        }
    }
    for (const Json::Value& group : m_cases["memory"])
        for (const Json::Value& each : group)
            EXPECT_TRUE(endings.contains(each.asString()) || !kMemoryFails) << each << " is not met";
    for (const auto& [row, outcome] : rows)
        EXPECT_TRUE(met.contains(row) || (kIsWindows && !row.starts_with("WinHttp"))) << row << " is not met";
    std::cout << count << " calls failed in " << kOperations.size() << " operations\n";
}

} // namespace
