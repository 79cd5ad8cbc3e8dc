#include "Client.h"

#include "FailureText.h"
#include "Failures.h"
#include "JsonText.h"
#include "SessionFile.h"
#include "System.h"
#include "TerminalText.h"
#include "TextConversion.h"

#include "QuendraHttp/QuendraHttp.h"

#include <iostream>

void Client::ApiDeleter::operator()(IQuendraHttpAPI* api) const
{
    api->Release();
}

bool Client::KnowsServer() const
{
    return m_options.server || LoadSession(SessionFilePath());
}

void Client::Connect(bool withToken)
{
    std::optional<SavedSession> session;
    if (!m_options.server || (withToken && !m_options.token))
        session = LoadSession(SessionFilePath());

    if (m_options.server)
        m_server = MakeAddress(*m_options.server, m_options.port);
    else if (session)
        m_server = {session->server.secure, session->server.host, m_options.port.value_or(session->server.port)};
    else
        throw UsageError("no server is named: use --server URL, or log in first: quendra --server URL login USER");

    // A saved session needs no warning: `login` printed it.
    if (m_options.server && !m_server.secure && !m_server.IsThisMachine())
        Note("quendra: warning: http:// protects neither passwords nor files on the way to " + m_server.host + "; use https://");

    m_api.reset(CreateInstance(System::MachineName()));
    if (!m_api)
        throw OperationFailed("CreateInstance", Result::NotEnoughMemory);
    Check("SetClientTag", m_api->SetClientTag("quendra"));
    if (m_options.device)
        Check("SetDeviceName", m_api->SetDeviceName(m_options.device->c_str()));
    Check("SetServer", m_api->SetServer(ToNarrow(ToWide(m_server.Url()), NarrowEncoding::ThreadAnsi).c_str()));
    Check("SetPort", m_api->SetPort(m_server.port));
    if (!withToken)
        return;
    if (m_options.token)
        Check("SetSessionToken", m_api->SetSessionToken(ToWide(*m_options.token)));
    else if (session && session->server == m_server)
        Check("SetSessionToken", m_api->SetSessionToken(ToWide(session->token)));
}

bool Client::ShowsProgress() const
{
    return System::ErrorsAreTerminal() && !m_options.quiet && !m_options.json;
}

void Client::Print(const Json::Value& document, const std::string& text) const
{
    PrintOutput(m_options.json ? JsonLine(document) + '\n' : text);
}

void Client::Note(const std::string& line) const
{
    std::cerr << line << '\n' << std::flush;
}

std::string Client::ServerOption() const
{
    return m_options.server ? " --server " + System::ShellWord(m_server.Text()) : std::string();
}

void Client::ReportFailure(const std::string& operation, ResultCode code, const std::string& advice) const
{
    const std::string meaning = FailureMeaning(code, m_answers.Answer(), advice, ServerOption());
    Note("quendra: " + operation + " failed: " + CodeText(code) + " (" + meaning + ")");
    PrintFailure(m_options, meaning, operation, code);
}

void PrintOutput(const std::string& text)
{
    std::cout << text << std::flush;
    if (!std::cout)
        throw ProgramError("The result cannot be written to standard output");
}

void PrintFailure(const Options& options, const std::string& meaning, const Json::Value& operation, const Json::Value& code)
{
    if (!options.json)
        return;
    Json::Value document;
    document["error"]["operation"] = operation;
    document["error"]["code"] = code;
    document["error"]["meaning"] = meaning;
    std::cout << JsonLine(document) << '\n' << std::flush;
}

Json::Value OkDocument()
{
    Json::Value document;
    document["ok"] = true;
    return document;
}

Json::Value TextOrNull(const std::wstring& text)
{
    return text.empty() ? Json::Value() : Json::Value(ToNarrow(text));
}
