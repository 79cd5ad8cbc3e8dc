// get: a whole file or a delta is received beside its target, checked, and then replaces the target; a range is written into the local
// file.
//
//     look at the item --> receive the part file --> its length --> its time --> rename
//                                  |                     |
//                            keep it, where          remove it
//                            one can go on

#include "Attributes.h"
#include "Client.h"
#include "Commands.h"
#include "FailureText.h"
#include "Failures.h"
#include "Items.h"
#include "PartFile.h"
#include "Progress.h"
#include "ServerPath.h"
#include "TerminalText.h"
#include "TextConversion.h"
#include "Transfers.h"

#include "QuendraHttp/QuendraHttp.h"

#include <algorithm>
#include <filesystem>
#include <limits>

namespace
{

constexpr auto kLargest = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());

using ItemPtr = std::shared_ptr<IServerAttributes>;

class Download
{
public:
    Download(Client& client, const Command::Get& command) : m_client(client), m_command(command), m_shown(command.local)
    {
        Look();
        ChooseTarget();
        if (IsRange())
            LimitRange();
    }

    void Run()
    {
        const auto progress = std::make_shared<Progress>(m_client, LeafName(m_command.path), Total());
        ItemPtr item = IsRange() ? GetRange(progress) : GetWhole(progress);
        // With some kinds of session the library makes no request and returns the record that was passed in.
        if (item == m_known && m_command.revision.empty())
            item->SetRevision(m_knownRevision);
        m_client.Print(ItemResult(item), "Downloaded " + Printable(m_command.path) + " to " + Printable(m_shown) + " (" +
                                             BinarySize(progress->Position()) + ")" + RevisionNote(item) + ".\n");
    }

private:
    [[nodiscard]] bool IsRange() const { return m_command.skip || m_command.count; }
    [[nodiscard]] bool IsDelta() const { return !m_command.signature.empty(); }
    [[nodiscard]] const char* Operation() const { return IsRange() ? "DownloadData" : "DownloadFile"; }

    // The kind of the item decides how the reply is stored.
    void Look()
    {
        Check("GetPathAttributes", m_client.Api().GetPathAttributes(m_command.path, m_known));
        if (IsDirectory(*m_known))
            throw ProgramError(Printable(m_command.path) + " is a folder: get takes one file");
        m_knownRevision = m_known->GetRevision();
        const bool isCurrent = m_command.revision.empty() || m_command.revision == m_knownRevision;
        if (isCurrent && m_known->HasSize() && m_known->GetSize() >= 0)
            m_size = static_cast<std::uint64_t>(m_known->GetSize());
        if (isCurrent && m_known->GetLastWriteTime().IsSet())
            m_modifiedTicks = m_known->GetLastWriteTime().GetTicks();
        m_known->SetRevision(m_command.revision);
    }

    // If the target is a local folder, the file gets the item's name in it.
    void ChooseTarget()
    {
        m_local = System::LocalPath(m_command.local);
        System::FileFacts facts;
        if (System::ReadFileFacts(m_local, facts) != Result::Success || !facts.isFolder)
            return;
        const std::wstring name = LeafName(m_command.path);
        if (!System::IsFileName(name))
            throw ProgramError("'" + Printable(name) + "' cannot be a file's name here: name the local file");
        m_local = System::ToText(System::ToPath(m_local) / System::ToPath(name));
        m_shown = System::ToText(System::ToPath(m_shown) / System::ToPath(name));
    }

    void LimitRange()
    {
        m_skip = m_command.skip.value_or(0);
        const std::uint64_t rest = m_size ? *m_size - std::min(*m_size, m_skip) : kLargest - m_skip;
        m_count = m_command.count.value_or(rest);
        // A range that starts at a multiple of 4 GiB would empty the local file: request it with the preceding byte.
        if (m_skip != 0 && (m_skip & 0xFFFFFFFF) == 0)
        {
            --m_skip;
            m_count = std::min(m_count + 1, kLargest);
        }
    }

    // The number of bytes to expect, if known.
    [[nodiscard]] std::optional<std::uint64_t> Total() const
    {
        if (IsDelta())
            return std::nullopt;
        if (IsRange() && m_size)
            return std::min(m_count, *m_size - std::min(*m_size, m_skip));
        return m_size;
    }

    ItemPtr GetWhole(const std::shared_ptr<Progress>& progress)
    {
        PartFile part(m_local, m_shown);
        ItemPtr item;
        const ResultCode code = Transfer(progress, [&](const CancelEvent& cancelEvent) {
            const std::wstring signature = IsDelta() ? System::LocalPath(m_command.signature) : std::wstring();
            return m_client.Api().DownloadFile(m_command.path, part.Path(), m_known, item, signature, cancelEvent, progress);
        });
        if (CanGoOn(code) && !IsDelta() && !Revision().empty() && part.Size() > 0)
        {
            part.Keep();
            m_client.Note("quendra: to receive the rest: " + RestCommand(part.Shown(), part.Size()) + "; then rename " +
                          LocalWord(part.Shown()) + " to " + LocalWord(part.ShownTarget()));
        }
        Check(Operation(), code);
        CheckLength(part.Size());
        if (!IsDelta() && m_modifiedTicks)
            Check("SetFileTime", System::SetModifiedTime(part.Path(), *m_modifiedTicks));
        part.ReplaceTarget();
        return item;
    }

    ItemPtr GetRange(const std::shared_ptr<Progress>& progress)
    {
        ItemPtr item;
        const auto count = static_cast<std::int64_t>(m_count);
        const ResultCode code = Transfer(progress, [&](const CancelEvent& cancelEvent) {
            return m_client.Api().DownloadData(m_command.path, m_local, m_known, item, &m_skip, &count, cancelEvent, progress);
        });
        if (CanGoOn(code))
            m_client.Note("quendra: to receive the rest: " + RestCommand(m_shown, m_skip + progress->Position()));
        Check(Operation(), code);
        CheckLength(progress->Position());
        return item;
    }

    // Runs the operation. If Ctrl-C ended it, the result is "cancelled".
    template <typename Call> ResultCode Transfer(const std::shared_ptr<Progress>& progress, const Call& call)
    {
        const Cancellation cancellation(m_client, m_command.path, kTransferGrace);
        const ResultCode code = call(cancellation.Event());
        progress->Finish();
        return code != Result::Success && cancellation.IsRequested() ? Result::Cancelled : code;
    }

    static bool CanGoOn(ResultCode code) { return code == Result::Cancelled || IsConnectionFailure(code); }

    // Not every reply states its length, and an error page from a gateway can have status 200.
    void CheckLength(std::uint64_t received) const
    {
        const auto total = Total();
        if (!total || received == *total)
            return;
        throw ProgramError("Of " + Printable(m_command.path) + " came " + std::to_string(received) + " bytes in place of " +
                           std::to_string(*total) + ": the reply was cut, it is not the server's, or the item has changed meanwhile");
    }

    // The revision of the reply: only the rest of that revision may be appended.
    [[nodiscard]] const std::string& Revision() const { return m_command.revision.empty() ? m_knownRevision : m_command.revision; }

    [[nodiscard]] std::string RestCommand(const std::wstring& local, std::uint64_t position) const
    {
        std::string command = "quendra get " + System::ShellWord(ToNarrow(m_command.path)) + " " + LocalWord(local);
        if (!Revision().empty())
            command += " --revision " + System::ShellWord(Revision());
        command += " --skip " + std::to_string(position);
        if (m_command.count)
            command += " --count " + std::to_string(m_skip + m_count - position);
        return command + m_client.ServerOption();
    }

    Client& m_client;
    const Command::Get& m_command;
    std::wstring m_shown; // the target as the user can write it
    std::wstring m_local; // the target as the library takes it
    ItemPtr m_known;
    std::string m_knownRevision;
    std::optional<std::uint64_t> m_size;
    std::optional<std::int64_t> m_modifiedTicks;
    std::uint64_t m_skip = 0;
    std::uint64_t m_count = 0;
};

} // namespace

namespace Command
{

void Execute(Client& client, const Get& command)
{
    Download(client, command).Run();
}

} // namespace Command
