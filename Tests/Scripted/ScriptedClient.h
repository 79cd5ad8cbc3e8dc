#pragma once

/// @file
/// An instance over scripted platform calls, and the failures of a transport of its caller's own.

#include "Instance.h"
#include "ScriptedWinHttp.h"
#include "Transport/WinHttpImpl.h"
#include "Transport/WinHttpImplRequest.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

/// What a step of the transport returns: its own result, but for the failure that the script says.
inline ResultCode After(const std::string& step, ResultCode own)
{
    WinHttpScript::Foreign& failure = g_script.foreign;
    if (step != failure.step || --failure.call != 0)
        return own;
    SetLastError(failure.lastError);
    return failure.result;
}

/// The library's own transport, but for the script's foreign failure.
struct ForeignTransport : WinHttpFactory
{
    struct Connection : WinHttpConnection
    {
        // A library that reads the last error too late is found out.
        ~Connection() override { SetLastError(0xDEAD); }

        ResultCode Initialise(const std::wstring& server, std::uint16_t port, const std::shared_ptr<IWinHttpSession>& session,
                              std::uint64_t send, std::uint64_t receive) override
        {
            return After("connect", WinHttpConnection::Initialise(server, port, session, send, receive));
        }
    };

    struct Request : WinHttpRequest
    {
        using WinHttpRequest::WinHttpRequest;
        ~Request() override { SetLastError(0xDEAD); }

        ResultCode Initialise(const std::wstring& path, const std::wstring& verb, const std::shared_ptr<IWinHttpConnection>& connection,
                              const wchar_t* accept, std::uint32_t flags) override
        {
            return After("open", WinHttpRequest::Initialise(path, verb, connection, accept, flags));
        }
        ResultCode AppendFormData(const char* name, const std::wstring& value, bool isLast) override
        {
            return After(isLast ? "last field" : "field", WinHttpRequest::AppendFormData(name, value, isLast));
        }
        ResultCode AddMultipartFormData(const wchar_t* name, const wchar_t* value) override
        {
            return After("wide part", WinHttpRequest::AddMultipartFormData(name, value));
        }
        ResultCode AddMultipartFormData(const char* name, const char* value) override
        {
            return After("part", WinHttpRequest::AddMultipartFormData(name, value));
        }
        ResultCode EndMultipart() override { return After("end multipart", WinHttpRequest::EndMultipart()); }
        ResultCode GetResponse(ResponseBuffer& response) override
        {
            if (g_script.foreign.step != "reply")
                return WinHttpRequest::GetResponse(response);
            response.length = 7; // of nothing
            return After("reply", Result::Success);
        }
        // Both ways to receive a file.
        ResultCode GetResponse(const std::wstring& path, const CancelEvent* cancel, const std::shared_ptr<IProgressCallback>& progress,
                               std::uint32_t offsetLow, std::uint32_t offsetHigh) override
        {
            return After("file", WinHttpRequest::GetResponse(path, cancel, progress, offsetLow, offsetHigh));
        }
    };

    std::shared_ptr<IWinHttpConnection> CreateConnection() override { return std::make_shared<Connection>(); }
    std::shared_ptr<IWinHttpRequest> CreateRequest(const std::shared_ptr<IWinHttpSession>& session) override
    {
        return std::make_shared<Request>(session);
    }
};

/// Restarts the script.
struct NewScript
{
    NewScript() { g_script = {}; }
};

/// An instance with a server set, and nothing recorded.
class ScriptedClient : NewScript, public Instance
{
public:
    ScriptedClient() : Instance(CreateInstanceWithFactory(std::make_shared<ForeignTransport>(), L"device"))
    {
        Api().SetServer("http://server");
        Api().SetPort(8080);
        g_script = {};
    }

    /// Shakes hands with a server of one API version, and forgets what was recorded.
    /// @param mode  the reply to "/init".
    void Negotiate(const std::string& version = "1.3", const std::string& mode = R"({"device_token_auth":false})") const
    {
        g_script.replies = {{200, R"({"sync":{")" + version + R"(":{"path":"/sync"}},"audit":{"1":{"path":"/audit"}}})", 0, {}},
                            {200, mode, 0, {}}};
        ASSERT_EQ(ShakeHands(), 0U);
        g_script = {};
    }
};
