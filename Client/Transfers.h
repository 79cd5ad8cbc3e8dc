#pragma once

/// @file
/// Functions that the transfer commands share.

#include "Cancellation.h"
#include "System.h"

#include <memory>
#include <string>

class Client;
class IServerAttributes;

namespace Command
{
struct Put;
}

/// How long a transfer may take to react to the cancel event, which it tests between blocks, before its request is closed.
inline constexpr std::chrono::milliseconds kTransferGrace{2000};

/// The facts about a local file before it is sent.
struct LocalFile
{
    std::wstring path; ///< as the library takes it.
    std::wstring name;
    System::FileFacts facts;

    /// A new record of the file: the library replaces the one that it is given.
    [[nodiscard]] std::shared_ptr<IServerAttributes> Attributes(const std::string& revision) const;
};

/// @param operation  the one that a failure is reported for.
/// @throws OperationFailed if the file cannot be examined, ProgramError if it is not a regular file.
[[nodiscard]] LocalFile OpenLocalFile(const char* operation, const std::wstring& argument);

/// @throws OperationFailed for a code other than 0; a failure caused by Ctrl-C is reported as cancelled. The advice on a conflict names the
/// server's revision.
void CheckTransfer(const char* operation, ResultCode code, const Cancellation& cancellation,
                   const std::shared_ptr<IServerAttributes>& attributes);

/// A local path, as the user wrote it, as a word of a command that the user is advised to run.
[[nodiscard]] std::string LocalWord(const std::wstring& path);

/// The text of an upload's result, its line ended.
[[nodiscard]] std::string UploadedText(const LocalFile& file, const std::wstring& target, const std::shared_ptr<IServerAttributes>& item);

/// Uploads in chunks: `put` with `--chunk-size`.
void UploadInChunks(Client& client, const Command::Put& command);
