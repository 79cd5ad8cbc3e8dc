#include "Attributes.h"
#include "Client.h"
#include "Commands.h"
#include "Failures.h"
#include "Items.h"
#include "Progress.h"
#include "Text.h"
#include "TextConversion.h"
#include "TimeText.h"
#include "Transfers.h"

#include "QuendraHttp/QuendraHttp.h"

#include <algorithm>
#include <filesystem>
#include <limits>

namespace
{

constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

std::wstring LeafName(const std::wstring& serverPath)
{
    return serverPath.substr(serverPath.rfind(L'/') + 1);
}

// A local folder stands for a file of the item's name in it.
std::wstring DownloadTarget(const std::wstring& argument, const std::wstring& serverPath)
{
    const std::wstring path = System::LocalPath(argument);
    System::FileFacts facts;
    if (System::ReadFileFacts(path, facts) != Result::Success || !facts.isFolder)
        return path;
    return System::ToText(System::ToPath(path) / System::ToPath(LeafName(serverPath)));
}

// One download: what is asked for and what is known of the item before.
class Download
{
public:
    Download(Client& client, const Command::Get& command)
        : m_client(client), m_command(command), m_local(DownloadTarget(command.local, command.path))
    {
        // It may fail for an item that can be downloaded nevertheless; then its size is not known.
        if (client.Api().GetPathAttributes(command.path, m_known) != Result::Success)
            m_known = nullptr;
        if (m_known && m_known->HasSize() && m_known->GetSize() >= 0)
            m_size = static_cast<std::uint64_t>(m_known->GetSize());
        if (IsRange())
            LimitRange();
    }

    void Run()
    {
        const std::string knownRevision = m_known ? m_known->GetRevision() : std::string();
        const auto attributes = m_known ? m_known : RevisionOnly({});
        attributes->SetRevision(m_command.revision);

        const auto progress = std::make_shared<Progress>(m_client, LeafName(m_command.path), Total());
        std::shared_ptr<IServerAttributes> item;
        Transfer(attributes, item, progress);
        // Where the server's kind of session lets the library spare a request, the result is the record that was passed in.
        if (item == attributes && m_command.revision.empty())
            item->SetRevision(knownRevision);
        m_client.Print(ItemResult(item), "Downloaded " + Printable(m_command.path) + " to " + Printable(m_command.local) + " (" +
                                             BinarySize(progress->Position()) + ")" + RevisionNote(item) + ".\n");
    }

private:
    [[nodiscard]] bool IsRange() const { return m_command.skip || m_command.count; }

    void LimitRange()
    {
        m_skip = m_command.skip.value_or(0);
        const std::uint64_t rest = m_size ? *m_size - std::min(*m_size, m_skip) : kLargest - m_skip;
        m_count = m_command.count.value_or(rest);
        // A range at a multiple of 4 GiB would empty the local file: it is asked for with the byte before it.
        if (m_skip != 0 && (m_skip & 0xFFFFFFFF) == 0)
        {
            --m_skip;
            m_count = std::min(m_count + 1, kLargest);
        }
    }

    [[nodiscard]] std::optional<std::uint64_t> Total() const
    {
        if (!m_command.signature.empty())
            return std::nullopt; // a delta's size is not known before
        if (IsRange() && m_size)
            return std::min(m_count, *m_size - std::min(*m_size, m_skip));
        return m_size;
    }

    void Transfer(const std::shared_ptr<IServerAttributes>& attributes, std::shared_ptr<IServerAttributes>& item,
                  const std::shared_ptr<Progress>& progress)
    {
        const Cancellation cancellation(m_client, m_command.path, kTransferGrace);
        ResultCode code = Result::Success;
        if (IsRange())
        {
            const auto count = static_cast<std::int64_t>(m_count);
            code = m_client.Api().DownloadData(m_command.path, m_local, attributes, item, &m_skip, &count, cancellation.Event(), progress);
        }
        else
        {
            const std::wstring signature = m_command.signature.empty() ? std::wstring() : System::LocalPath(m_command.signature);
            code = m_client.Api().DownloadFile(m_command.path, m_local, attributes, item, signature, cancellation.Event(), progress);
        }
        progress->Finish();
        if (code != Result::Success && cancellation.IsRequested())
            m_client.Note("quendra: " + HowToGoOn(progress->Position()));
        CheckTransfer(IsRange() ? "DownloadData" : "DownloadFile", code, cancellation, nullptr);
    }

    [[nodiscard]] std::string HowToGoOn(std::uint64_t moved) const
    {
        std::string command = "quendra get " + ShellWord(Printable(m_command.path)) + " " + ShellWord(Printable(m_command.local));
        if (!m_command.revision.empty())
            command += " --revision " + ShellWord(Printable(std::string_view(m_command.revision)));
        if (!m_command.signature.empty())
            return "a delta starts afresh: " + command + " --signature " + ShellWord(Printable(m_command.signature));

        const std::uint64_t position = m_skip + moved;
        if (position == 0)
            return "nothing was received; start again: " + command;
        command += " --skip " + std::to_string(position);
        if (IsRange())
            command += " --count " + std::to_string(m_skip + m_count - position);
        return "to receive the rest: " + command;
    }

    Client& m_client;
    const Command::Get& m_command;
    std::wstring m_local;
    std::shared_ptr<IServerAttributes> m_known;
    std::optional<std::uint64_t> m_size;
    std::uint64_t m_skip = 0;
    std::uint64_t m_count = 0;
};

void UploadWhole(Client& client, const Command::Put& command)
{
    const LocalFile file = OpenLocalFile("UploadFile", command.local);
    const std::wstring target = UploadTarget(command.path, file);
    auto attributes = file.Attributes(command.revision);
    const std::uint32_t deltaFlag = command.delta ? 1 : 0;
    const auto progress = std::make_shared<Progress>(client, file.name, static_cast<std::uint64_t>(file.facts.size));
    {
        const Cancellation cancellation(client, target, kTransferGrace);
        const ResultCode code = client.Api().UploadFile(file.path, target, attributes, &deltaFlag, cancellation.Event(), progress);
        progress->Finish();
        if (code != Result::Success && cancellation.IsRequested())
            client.Note(std::string("quendra: the upload starts afresh next time") +
                        (command.delta ? "" : "; with --chunk-size 8MB one that is interrupted can be resumed"));
        CheckTransfer("UploadFile", code, cancellation, attributes);
    }
    client.Print(ItemResult(attributes), UploadedText(file, target, attributes));
}

} // namespace

std::shared_ptr<IServerAttributes> LocalFile::Attributes(const std::string& revision) const
{
    auto attributes = std::make_shared<CServerAttributes>();
    attributes->SetName(name);
    attributes->SetSize(facts.size);
    attributes->SetCreationTime(CAttributeTime(facts.createdTicks));
    attributes->SetLastWriteTime(CAttributeTime(facts.modifiedTicks));
    attributes->SetAttributes(facts.attributes);
    attributes->SetRevision(revision);
    return attributes;
}

LocalFile OpenLocalFile(const char* operation, const std::wstring& argument)
{
    LocalFile file;
    file.path = System::LocalPath(argument);
    file.name = System::ToText(System::ToPath(argument).filename());
    Check(operation, System::ReadFileFacts(file.path, file.facts));
    if (file.facts.isFolder)
        throw OperationFailed(operation, Result::AccessDenied, Printable(argument) + " is a folder");
    return file;
}

std::wstring UploadTarget(const std::wstring& target, const LocalFile& file)
{
    return target.ends_with(L'/') ? target + file.name : target;
}

void CheckTransfer(const char* operation, ResultCode code, const Cancellation& cancellation,
                   const std::shared_ptr<IServerAttributes>& attributes)
{
    if (code != Result::Success && cancellation.IsRequested())
        throw OperationFailed(operation, Result::Cancelled);
    if (code == Result::Conflict && attributes && !attributes->GetRevision().empty())
    {
        const std::string revision = Printable(std::string_view(attributes->GetRevision()));
        throw OperationFailed(operation, code,
                              "the server has revision " + revision + " of " + TimeForPeople(attributes->GetLastWriteTime()) +
                                  ": --revision " + ShellWord(revision) + " replaces it");
    }
    Check(operation, code);
}

std::string UploadedText(const LocalFile& file, const std::wstring& target, const std::shared_ptr<IServerAttributes>& item)
{
    return "Uploaded " + Printable(file.name) + " to " + Printable(target) + " (" +
           BinarySize(static_cast<std::uint64_t>(file.facts.size)) + ")" + RevisionNote(item) + ".\n";
}

namespace Command
{

void Execute(Client& client, const Get& command)
{
    Download(client, command).Run();
}

void Execute(Client& client, const Put& command)
{
    if (command.chunkSize)
        UploadInChunks(client, command);
    else
        UploadWhole(client, command);
}

} // namespace Command
