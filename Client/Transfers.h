#pragma once

/// @file
/// What the transfer commands share.

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

/// How long a transfer may take to heed the cancel event before its request is closed: it is tested between blocks.
inline constexpr std::chrono::milliseconds kTransferGrace{2000};

/// What a local file is before it is sent.
struct LocalFile
{
    std::wstring path; ///< as the library takes it.
    std::wstring name;
    System::FileFacts facts;

    /// A fresh record of the file: the library replaces the one that it is given.
    [[nodiscard]] std::shared_ptr<IServerAttributes> Attributes(const std::string& revision) const;
};

/// @param operation  the one that a failure is reported for.
/// @throws OperationFailed for what cannot be looked at, ProgramError for what is no regular file.
[[nodiscard]] LocalFile OpenLocalFile(const char* operation, const std::wstring& argument);

/// @throws OperationFailed for a code other than 0; one that Ctrl-C brought about counts as cancelled. A conflict's advice names
///         the revision that the server has.
void CheckTransfer(const char* operation, ResultCode code, const Cancellation& cancellation,
                   const std::shared_ptr<IServerAttributes>& attributes);

/// The text of an upload's result, its line ended.
[[nodiscard]] std::string UploadedText(const LocalFile& file, const std::wstring& target, const std::shared_ptr<IServerAttributes>& item);

/// Uploads in chunks: `put` with `--chunk-size`.
void UploadInChunks(Client& client, const Command::Put& command);
