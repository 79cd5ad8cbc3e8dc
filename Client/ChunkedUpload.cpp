// An upload in chunks, and the commands that manage one:
//
//        put                    put --resume
//         |                          |
//     new identifier         what does the server have?
//         |                          |
//         v                          v
//     chunk at 0 -------> chunk at the position  <--+
//         |                          |              | more to send
//         +--------------------------+--------------+
//                                    |
//                        the chunk that reaches the end of the file completes it

#include "Client.h"
#include "Commands.h"
#include "Failures.h"
#include "Identifier.h"
#include "Items.h"
#include "Progress.h"
#include "TerminalText.h"
#include "TextConversion.h"
#include "Transfers.h"

#include "Platform/Platform.h"
#include "QuendraHttp/QuendraHttp.h"

#include <algorithm>
#include <optional>

namespace
{

// The server's report on an upload; it may omit either value.
struct UploadState
{
    std::optional<std::int64_t> offset;
    std::optional<bool> locked;
};

UploadState AskForState(const Client& client, const std::wstring& path, const Quendra::UploadId& id)
{
    constexpr std::int64_t kNoOffset = -1;
    constexpr std::uint32_t kNotReported = 2;
    std::int64_t offset = kNoOffset;
    std::uint32_t locked = kNotReported;
    Check("GetResumableUploadMetadata", client.Api().GetResumableUploadMetadata(path, id, &offset, &locked));
    UploadState state;
    if (offset >= 0)
        state.offset = offset;
    if (locked != kNotReported)
        state.locked = locked != 0;
    return state;
}

Quendra::UploadId MakeIdentifier()
{
    Quendra::UploadId id{};
    if (CoCreateGuid(&id) < 0)
        throw ProgramError("The system gives no identifier for the upload");
    return id;
}

class ChunkedUpload
{
public:
    ChunkedUpload(Client& client, const Command::Put& command)
        : m_client(client),
          m_command(command),
          m_file(OpenLocalFile("ResumableUpload", command.local)),
          m_target(TargetIn(client, command.path, m_file.name)),
          m_id(command.resume ? *command.resume : MakeIdentifier()),
          m_idText(ToNarrow(IdentifierText(m_id)))
    {
    }

    void Run()
    {
        // Print the identifier before anything can fail: it is needed to resume. The result contains it, too.
        const std::string idLine = "Upload id: " + m_idText;
        if (m_client.PrintsJson())
            m_client.Note(idLine);
        else
            m_client.Print({}, idLine + "\n");

        if (m_command.resume)
            m_offset = ResumePosition();
        const auto item = SendChunks();
        Json::Value document = ItemResult(item);
        document["uploadId"] = m_idText;
        m_client.Print(document, UploadedText(m_file, m_target, item));
    }

private:
    std::int64_t ResumePosition() const
    {
        const std::int64_t offset = AskForState(m_client, m_target, m_id).offset.value_or(0);
        if (offset > m_file.facts.size)
            throw ProgramError("The server has " + std::to_string(offset) + " bytes of this upload, more than " + Printable(m_file.name) +
                               " is long: it is not the same file");
        return offset;
    }

    // Returns the server's record of the whole file.
    std::shared_ptr<IServerAttributes> SendChunks()
    {
        const auto size = static_cast<std::uint64_t>(m_file.facts.size);
        const auto progress = std::make_shared<Progress>(m_client, m_file.name, size, static_cast<std::uint64_t>(m_offset));
        const Cancellation cancellation(m_client, m_target, kTransferGrace);
        std::shared_ptr<IServerAttributes> item;
        // An empty file is sent as one empty chunk.
        do
        {
            item = SendChunk(cancellation, progress);
        } while (m_offset < m_file.facts.size);
        progress->Finish();
        return item;
    }

    std::shared_ptr<IServerAttributes> SendChunk(const Cancellation& cancellation, const std::shared_ptr<Progress>& progress)
    {
        CheckUnchanged();
        auto attributes = m_file.Attributes(m_command.revision);
        const std::int32_t beginFlag = m_offset == 0 ? 1 : 0;
        std::int64_t length = std::min(static_cast<std::int64_t>(*m_command.chunkSize), m_file.facts.size - m_offset);
        const ResultCode code = m_client.Api().ResumableUpload(m_file.path, m_target, attributes, m_id, &m_offset, &length, beginFlag,
                                                               cancellation.Event(), progress);
        if (code != Result::Success)
        {
            progress->Finish();
            // The server keeps the bytes, but refuses to complete the upload at this path.
            if (code == Result::Conflict && !cancellation.IsRequested())
                m_client.Note("quendra: to finish it under another path: quendra upload-complete " + System::ShellWord(ToNarrow(m_target)) +
                              " NEWPATH " + m_idText + m_client.ServerOption());
            else
                m_client.Note("quendra: to resume: " + ResumeCommand());
            // Throws: the code is no success.
            CheckTransfer("ResumableUpload", code, cancellation, attributes);
        }
        m_offset += length;
        return attributes;
    }

    // Parts of two versions must not become one file.
    void CheckUnchanged() const
    {
        System::FileFacts now;
        Check("ResumableUpload", System::ReadFileFacts(m_file.path, now));
        if (now.size != m_file.facts.size || now.modifiedTicks != m_file.facts.modifiedTicks)
            throw ProgramError(Printable(m_file.name) + " has changed since the upload began: put it anew");
    }

    std::string ResumeCommand() const
    {
        std::string command = "quendra put " + LocalWord(m_command.local) + " " + System::ShellWord(ToNarrow(m_target));
        if (!m_command.revision.empty())
            command += " --revision " + System::ShellWord(m_command.revision);
        return command + " --chunk-size " + std::to_string(*m_command.chunkSize) + " --resume " + m_idText + m_client.ServerOption();
    }

    Client& m_client;
    const Command::Put& m_command;
    LocalFile m_file;
    std::wstring m_target;
    Quendra::UploadId m_id;
    std::string m_idText;
    std::int64_t m_offset = 0;
};

} // namespace

void UploadInChunks(Client& client, const Command::Put& command)
{
    ChunkedUpload(client, command).Run();
}

namespace Command
{

void Execute(Client& client, const UploadStatus& command)
{
    const UploadState state = AskForState(client, command.path, command.id);
    Json::Value document;
    document["offset"] = state.offset ? Json::Value(static_cast<Json::Int64>(*state.offset)) : Json::Value();
    document["locked"] = state.locked ? Json::Value(*state.locked) : Json::Value();
    const std::string received =
        state.offset ? std::to_string(*state.offset) + " bytes (" + BinarySize(static_cast<std::uint64_t>(*state.offset)) + ")"
                     : "the server does not tell";
    const std::string locked = !state.locked ? "the server does not tell" : *state.locked ? "yes" : "no";
    client.Print(document, "Received: " + received + "\nLocked:   " + locked + "\n");
}

void Execute(Client& client, const UploadCancel& command)
{
    Check("CancelUpload", client.Api().CancelUpload(command.path, command.id));
    client.Print(OkDocument(), "Abandoned the upload to " + Printable(command.path) + ".\n");
}

void Execute(Client& client, const UploadComplete& command)
{
    std::shared_ptr<IServerAttributes> item;
    Check("CompleteUpload", client.Api().CompleteUpload(command.path, command.newPath, command.id, item));
    client.Print(ItemResult(item), "Finished the upload as " + Printable(command.newPath) + RevisionNote(item) + ".\n");
}

} // namespace Command
