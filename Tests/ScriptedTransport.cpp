#include "ScriptedTransport.h"

#include "TextConversion.h"

#include "Platform/Platform.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <sstream>
#include <stdexcept>

namespace
{

using Progress = std::shared_ptr<IProgressCallback>;

// All parts as one narrow text.
template <typename... Parts> std::string Text(const Parts&... parts)
{
    std::ostringstream text;
    const auto append = [&text](const auto& part) {
        if constexpr (std::is_convertible_v<decltype(part), std::wstring>)
            text << ToNarrow(part);
        else
            text << part;
    };
    (append(parts), ...);
    return text.str();
}

std::string Watched(const CancelEvent* cancel, const Progress& progress)
{
    return Text(cancel != nullptr && cancel->event != nullptr ? " +cancel" : "", progress ? " +progress" : "");
}

ResultCode ResultOf(Script& script, std::string_view step)
{
    if (script.failure.step.empty() || !step.starts_with(script.failure.step) || ++script.failureCalls != script.failure.call)
        return Result::Success;
    SetLastError(script.failure.lastError);
    return script.failure.result;
}

class ScriptedSession final : public IWinHttpSession
{
public:
    explicit ScriptedSession(Script& script) : m_script(script) {}

    ResultCode Initialise() override { return ResultOf(m_script, "session"); }
    int SetTimeouts(std::int32_t resolve, std::int32_t connect, std::int32_t send, std::int32_t receive) override
    {
        m_script.timeouts.push_back({resolve, connect, send, receive});
        return ResultOf(m_script, "timeouts") == Result::Success ? 1 : 0;
    }
    void SetSessionToken(const std::wstring& token) override { m_token = token; }
    std::wstring GetSessionToken() override { return m_token; }
    void* GetHandle() override { return nullptr; }

private:
    Script& m_script;
    std::wstring m_token;
};

class ScriptedConnection final : public IWinHttpConnection
{
public:
    explicit ScriptedConnection(Script& script) : m_script(script) {}
    // Spoils the last error, so that a library that reads it too late is found out.
    ~ScriptedConnection() override { SetLastError(0xDEAD); }

    ResultCode Initialise(const std::wstring& server, std::uint16_t port, const std::shared_ptr<IWinHttpSession>&, std::uint64_t send,
                          std::uint64_t receive) override
    {
        m_script.connections.push_back(Text(server, ":", port, " send=", send, " receive=", receive));
        return ResultOf(m_script, "connect");
    }
    void* GetHandle() override { return nullptr; }

private:
    Script& m_script;
};

class ScriptedRequest final : public IWinHttpRequest
{
public:
    explicit ScriptedRequest(Script& script) : m_script(script), m_index(script.requests.size()) { script.requests.emplace_back(); }
    ~ScriptedRequest() override { SetLastError(0xDEAD); }

    ResultCode Initialise(const std::wstring& path, const std::wstring& verb, const std::shared_ptr<IWinHttpConnection>&,
                          const wchar_t* accept, std::uint32_t flags) override
    {
        const ResultCode result = Step(verb, " ", path, " flags=", flags, accept == nullptr ? "" : " accept=" + ToNarrow(accept));
        return result != Result::Success ? result : ResultOf(m_script, "open");
    }
    ResultCode AddHeader(const std::wstring& name, const std::wstring& value) override { return Step("header ", name, ": ", value); }
    ResultCode StartRequest(std::uint64_t contentLength) override { return Step("start ", contentLength); }
    ResultCode AppendFormData(const char* name, const std::wstring& value, bool isLast) override
    {
        return Step(isLast ? "last field " : "field ", name, "=", value);
    }
    ResultCode SendPostData() override { return Step("post data"); }
    ResultCode AddMultipartHeaders(bool acceptJson) override { return Step("multipart ", acceptJson ? "json" : "bytes"); }
    ResultCode SendMultipartFile(const char* field, const std::wstring& path, const std::wstring& fileName, const CancelEvent* cancel,
                                 const std::int64_t* offset, const std::int64_t* length, const Progress& progress,
                                 std::uint64_t* size) override
    {
        return File(size, field, " ", path, " as ", fileName, " range=", *offset, "+", *length, Watched(cancel, progress));
    }
    ResultCode SendMultipartFile(const char* field, const std::wstring& path, const std::wstring& fileName, const CancelEvent* cancel,
                                 const Progress& progress, std::uint64_t* size) override
    {
        return File(size, field, " ", path, " as ", fileName, Watched(cancel, progress));
    }
    ResultCode AddMultipartFormData(const wchar_t* name, const wchar_t* value) override { return Step("wide part ", name, "=", value); }
    ResultCode AddMultipartFormData(const char* name, const char* value) override { return Step("part ", name, "=", value); }
    ResultCode EndMultipart() override { return Step("end multipart"); }
    std::uint32_t GetEndMultipartLength() override { return 44; }
    ResultCode GetResponse(const std::wstring& path, const CancelEvent* cancel, const Progress& progress, std::uint32_t offsetLow,
                           std::uint32_t offsetHigh) override
    {
        return Answer(Step("receive into ", path, " at ", offsetHigh, ":", offsetLow, Watched(cancel, progress)));
    }
    ResultCode GetResponse(ResponseBuffer& response) override { return Fill(response, Answer(Step("send"))); }
    ResultCode SendRequestGetResponse(const std::wstring& path, const CancelEvent* cancel, const Progress& progress, bool asBytes,
                                      std::uint32_t offsetLow, std::uint32_t offsetHigh) override
    {
        const char* const send = asBytes ? "send for bytes into " : "send into ";
        return Answer(Step(send, path, " at ", offsetHigh, ":", offsetLow, Watched(cancel, progress)));
    }
    std::uint32_t GetHTTPStatus() override { return m_reply.status; }
    std::uint32_t GetPostDataLength() override { return 1000; }
    ResultCode ReceiveResponse(ResponseBuffer& response) override { return Fill(response, Answer(Step("receive"))); }
    ResultCode ReadResponse(ResponseBuffer& response) override { return Fill(response, Step("read")); }
    void Close() override { Step("close"); }

private:
    template <typename... Parts> ResultCode Step(const Parts&... parts)
    {
        return ResultOf(m_script, m_script.requests.at(m_index).emplace_back(Text(parts...)));
    }

    template <typename... Parts> ResultCode File(std::uint64_t* size, const Parts&... parts)
    {
        if (size == nullptr)
            return Step("write ", parts...);
        *size = 200;
        return Step("measure ", parts...);
    }

    // Takes the next reply, if the step that asks for it has not failed.
    ResultCode Answer(ResultCode step)
    {
        if (step != Result::Success)
            return step;
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

    ResultCode Fill(ResponseBuffer& response, ResultCode result) const
    {
        response = {};
        if (!m_reply.body)
            return result;
        response.length = m_reply.body->size();
        response.data = static_cast<char*>(std::malloc(m_reply.body->size() + 1));
        std::memcpy(response.data, m_reply.body->c_str(), m_reply.body->size() + 1);
        return result;
    }

    Script& m_script;
    const std::size_t m_index;
    ScriptedReply m_reply{0, std::nullopt, 0, {}};
};

class ScriptedFactory final : public IWinHttpFactory
{
public:
    explicit ScriptedFactory(Script& script) : m_script(script) {}

    std::shared_ptr<IWinHttpSession> CreateSession() override { return std::make_shared<ScriptedSession>(m_script); }
    std::shared_ptr<IWinHttpConnection> CreateConnection() override { return std::make_shared<ScriptedConnection>(m_script); }
    std::shared_ptr<IWinHttpRequest> CreateRequest(const std::shared_ptr<IWinHttpSession>&) override
    {
        return std::make_shared<ScriptedRequest>(m_script);
    }

private:
    Script& m_script;
};

} // namespace

std::shared_ptr<IWinHttpFactory> MakeScriptedTransport(Script& script)
{
    return std::make_shared<ScriptedFactory>(script);
}

ScriptedClient::ScriptedClient() : Instance(CreateInstanceWithFactory(MakeScriptedTransport(script), L"device"))
{
    Api().SetServer("http://server");
    Api().SetPort(8080);
}

void ScriptedClient::Negotiate(const std::string& version, const std::string& mode)
{
    script.replies = {{200, R"({"sync":{")" + version + R"(":{"path":"/sync"}},"audit":{"1":{"path":"/audit"}}})", 0, {}},
                      {200, mode, 0, {}}};
    ASSERT_EQ(ShakeHands(), 0U);
    script = {};
}
