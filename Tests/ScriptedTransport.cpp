#include "ScriptedTransport.h"

#include "TextConversion.h"

#include "Platform/Platform.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <mutex>
#include <stdexcept>

namespace
{

class ScriptedSession final : public IWinHttpSession
{
public:
    explicit ScriptedSession(Script& script) : m_script(script) {}

    ResultCode Initialise() override { return m_script.sessionResult; }
    int SetTimeouts(std::int32_t resolve, std::int32_t connect, std::int32_t send, std::int32_t receive) override
    {
        m_script.timeouts.push_back({resolve, connect, send, receive});
        if (static_cast<int>(m_script.timeouts.size()) != m_script.timeoutsFailure.call)
            return 1;
        SetLastError(m_script.timeoutsFailure.lastError);
        return 0;
    }
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
    HINTERNET GetHandle() override { return nullptr; }

private:
    Script& m_script;
    std::mutex m_lock;
    std::wstring m_token;
};

std::string Watched(const CancelEvent* cancel, const std::shared_ptr<IProgressCallback>& progress)
{
    return std::string(cancel != nullptr && cancel->event != nullptr ? " +cancel" : "") + (progress ? " +progress" : "");
}

ResultCode Initialised(const Script::Failure& failure, std::size_t call)
{
    if (static_cast<int>(call) != failure.call)
        return Result::Success;
    SetLastError(failure.lastError);
    return failure.result;
}

class ScriptedConnection final : public IWinHttpConnection
{
public:
    explicit ScriptedConnection(Script& script) : m_script(script) {}
    // A library that looks at the last error too late sees this.
    ~ScriptedConnection() override { SetLastError(0xDEAD); }

    ResultCode Initialise(const std::wstring& server, std::uint16_t port, const std::shared_ptr<IWinHttpSession>&,
                          std::uint64_t sendTimeoutOverride, std::uint64_t receiveTimeoutOverride) override
    {
        m_script.connections.push_back(ToNarrow(server) + ":" + std::to_string(port) + " send=" + std::to_string(sendTimeoutOverride) +
                                       " receive=" + std::to_string(receiveTimeoutOverride));
        return Initialised(m_script.connectionFailure, m_script.connections.size());
    }
    HINTERNET GetHandle() override { return nullptr; }

private:
    Script& m_script;
};

class ScriptedRequest final : public IWinHttpRequest
{
public:
    ScriptedRequest(Script& script, std::shared_ptr<IWinHttpSession> session) : m_script(script), m_session(std::move(session))
    {
        m_index = m_script.requests.size();
        m_script.requests.emplace_back();
    }
    ~ScriptedRequest() override { SetLastError(0xDEAD); }

    ResultCode Initialise(const std::wstring& path, const std::wstring& verb, const std::shared_ptr<IWinHttpConnection>&,
                          const wchar_t* acceptType, std::uint32_t flags) override
    {
        const ResultCode result = Step(ToNarrow(verb) + " " + ToNarrow(path) + " flags=" + std::to_string(flags) +
                                       (acceptType == nullptr ? "" : " accept=" + ToNarrow(acceptType)));
        return result != 0 ? result : Initialised(m_script.requestFailure, static_cast<std::size_t>(++m_script.requestsMade));
    }
    ResultCode AddHeader(const std::wstring& name, const std::wstring& value) override
    {
        return Step("header " + ToNarrow(name) + ": " + ToNarrow(value));
    }
    ResultCode StartRequest(std::uint64_t contentLength) override { return Step("start " + std::to_string(contentLength)); }
    ResultCode AppendFormData(const char* name, const std::wstring& value, bool isLast) override
    {
        return Step((isLast ? "last field " : "field ") + std::string(name) + "=" + ToNarrow(value));
    }
    ResultCode SendPostData() override { return Step("post data"); }
    ResultCode AddMultipartHeaders(bool acceptJson) override { return Step(acceptJson ? "multipart json" : "multipart bytes"); }
    ResultCode SendMultipartFile(const char* fieldName, const std::wstring& path, const std::wstring& fileName, const CancelEvent* cancel,
                                 const std::int64_t* offset, const std::int64_t* length, const std::shared_ptr<IProgressCallback>& progress,
                                 std::uint64_t* sizeOut) override
    {
        return File(fieldName, path, fileName,
                    " range=" + std::to_string(*offset) + "+" + std::to_string(*length) + Watched(cancel, progress), sizeOut);
    }
    ResultCode SendMultipartFile(const char* fieldName, const std::wstring& path, const std::wstring& fileName, const CancelEvent* cancel,
                                 const std::shared_ptr<IProgressCallback>& progress, std::uint64_t* sizeOut) override
    {
        return File(fieldName, path, fileName, Watched(cancel, progress), sizeOut);
    }
    ResultCode AddMultipartFormData(const wchar_t* name, const wchar_t* value) override
    {
        return Step("wide part " + ToNarrow(name) + "=" + ToNarrow(value));
    }
    ResultCode AddMultipartFormData(const char* name, const char* value) override
    {
        return Step(std::string("part ") + name + "=" + value);
    }
    ResultCode EndMultipart() override { return Step("end multipart"); }
    std::uint32_t GetEndMultipartLength() override { return 44; }
    ResultCode GetResponse(const std::wstring& path, const CancelEvent* cancel, const std::shared_ptr<IProgressCallback>& progress,
                           std::uint32_t offsetLow, std::uint32_t offsetHigh) override
    {
        const ResultCode result = Step("receive into " + ToNarrow(path) + " at " + std::to_string(offsetHigh) + ":" +
                                       std::to_string(offsetLow) + Watched(cancel, progress));
        return result != 0 ? result : Answer();
    }
    ResultCode GetResponse(ResponseBuffer& response) override { return Receive("send", response); }
    ResultCode SendRequestGetResponse(const std::wstring& path, const CancelEvent* cancel,
                                      const std::shared_ptr<IProgressCallback>& progress, bool acceptOctetStream, std::uint32_t offsetLow,
                                      std::uint32_t offsetHigh) override
    {
        const ResultCode result = Step(std::string("send") + (acceptOctetStream ? " for bytes" : "") + " into " + ToNarrow(path) + " at " +
                                       std::to_string(offsetHigh) + ":" + std::to_string(offsetLow) + Watched(cancel, progress));
        return result != 0 ? result : Answer();
    }
    std::uint32_t GetHTTPStatus() override { return m_reply.status; }
    std::uint32_t GetPostDataLength() override { return 1000; }
    ResultCode ReceiveResponse(ResponseBuffer& response) override { return Receive("receive", response); }
    ResultCode ReadResponse(ResponseBuffer& response) override
    {
        const ResultCode result = Step("read");
        Fill(response);
        return result;
    }
    void Close() override { Step("close"); }

private:
    ResultCode Step(const std::string& step)
    {
        m_script.requests.at(m_index).push_back(step);
        if (m_script.failingStep.empty() || !step.starts_with(m_script.failingStep) ||
            (++m_script.failingStepCalls != m_script.failingStepCall && m_script.failingStepCall != 0))
            return Result::Success;
        SetLastError(m_script.failingStepResult);
        return m_script.failingStepResult;
    }

    ResultCode File(const char* fieldName, const std::wstring& path, const std::wstring& fileName, const std::string& range,
                    std::uint64_t* sizeOut)
    {
        const ResultCode result = Step(std::string(sizeOut != nullptr ? "measure " : "write ") + fieldName + " " + ToNarrow(path) + " as " +
                                       ToNarrow(fileName) + range);
        if (sizeOut != nullptr)
            *sizeOut = 200;
        return result;
    }

    ResultCode Answer()
    {
        if (m_script.throwOnSend)
            throw std::bad_alloc();
        m_reply = {};
        if (!m_script.replies.empty())
        {
            m_reply = m_script.replies.front();
            m_script.replies.pop_front();
        }
        if (m_reply.meanwhile)
            m_reply.meanwhile();
        return m_reply.result;
    }

    ResultCode Receive(const char* step, ResponseBuffer& response)
    {
        if (const ResultCode failed = Step(step))
            return failed;
        const ResultCode result = Answer();
        Fill(response);
        return result;
    }

    void Fill(ResponseBuffer& response) const
    {
        response = {};
        if (!m_reply.body)
            return;
        response.length = m_reply.body->size();
        response.data = static_cast<char*>(std::malloc(m_reply.body->size() + 1));
        std::memcpy(response.data, m_reply.body->c_str(), m_reply.body->size() + 1);
    }

    Script& m_script;
    std::shared_ptr<IWinHttpSession> m_session;
    std::size_t m_index = 0;
    ScriptedReply m_reply{0, std::nullopt, 0, {}};
};

class ScriptedFactory final : public IWinHttpFactory
{
public:
    explicit ScriptedFactory(Script& script) : m_script(script) {}

    std::shared_ptr<IWinHttpSession> CreateSession() override { return std::make_shared<ScriptedSession>(m_script); }
    std::shared_ptr<IWinHttpConnection> CreateConnection() override { return std::make_shared<ScriptedConnection>(m_script); }
    std::shared_ptr<IWinHttpRequest> CreateRequest(const std::shared_ptr<IWinHttpSession>& session) override
    {
        return std::make_shared<ScriptedRequest>(m_script, session);
    }

private:
    Script& m_script;
};

} // namespace

std::shared_ptr<IWinHttpFactory> MakeScriptedTransport(Script& script)
{
    return std::make_shared<ScriptedFactory>(script);
}

ScriptedClient::ScriptedClient() : m_api(CreateInstanceWithFactory(MakeScriptedTransport(script), L"device"))
{
    m_api->SetServer("http://server");
    m_api->SetPort(8080);
}

ScriptedClient::~ScriptedClient()
{
    m_api->Release();
}

void ScriptedClient::Negotiate(const std::string& version, const std::string& mode)
{
    script.replies = {{200, R"({"sync":{")" + version + R"(":{"path":"/sync"}},"audit":{"1":{"path":"/audit"}}})", 0, {}},
                      {200, mode, 0, {}}};
    std::uint32_t serverMode = 0;
    std::uint32_t handshakeValue = 0;
    ASSERT_EQ(m_api->Init(serverMode, handshakeValue), 0U);
    script = {};
}
