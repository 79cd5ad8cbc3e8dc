#pragma once

/// @file
/// The commands of the command line, each with its arguments and its action. Server paths and names are in the library's form; local paths
/// are as the user wrote them.

#include "AttributeTime.h"

#include "QuendraHttp/Types.h"
#include "QuendraHttp/UploadId.h"

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

class Client;

/// A server mode in words.
[[nodiscard]] std::string ModeText(std::uint32_t serverMode);

namespace Command
{

struct Handshake
{
};

struct Version
{
};

struct Doctor
{
};

struct Register
{
    std::wstring user;
};

struct Login
{
    std::wstring user;
    std::wstring deviceToken;
};

struct Logout
{
};

struct List
{
    std::wstring path;
};

struct Stat
{
    std::wstring path;
};

struct MakeFolder
{
    std::wstring path;
};

struct Touch
{
    std::wstring path;
    std::optional<CAttributeTime> created;
    std::optional<CAttributeTime> modified;
    std::optional<std::uint32_t> attributes;
};

struct Remove
{
    std::wstring path;
    std::string revision;
    bool recursive = false;
};

struct Move
{
    std::wstring source;
    std::wstring target;
    bool overwrite = false;
};

struct Get
{
    std::wstring path;
    std::wstring local;
    std::string revision;
    std::wstring signature;
    std::optional<std::uint64_t> skip;
    std::optional<std::uint64_t> count;
};

struct Put
{
    std::wstring local;
    std::wstring path;
    std::string revision;
    bool delta = false;
    std::optional<std::uint64_t> chunkSize;
    std::optional<Quendra::UploadId> resume;
};

struct UploadStatus
{
    std::wstring path;
    Quendra::UploadId id{};
};

struct UploadCancel
{
    std::wstring path;
    Quendra::UploadId id{};
};

struct UploadComplete
{
    std::wstring path;
    std::wstring newPath;
    Quendra::UploadId id{};
};

struct Changes
{
    bool follow = false;
};

struct Mappings
{
};

struct Share
{
    std::vector<std::wstring> paths;
    std::vector<std::wstring> recipients;
    std::wstring name;
    std::wstring message;
};

struct Audit
{
    std::string file; ///< "-": standard input.
};

struct WipeAcknowledgement
{
    std::wstring user;
    std::wstring deviceId;
};

using Any = std::variant<Handshake, Version, Doctor, Register, Login, Logout, List, Stat, MakeFolder, Touch, Remove, Move, Get, Put,
                         UploadStatus, UploadCancel, UploadComplete, Changes, Mappings, Share, Audit, WipeAcknowledgement>;

// Each runs its command to the end and prints its result. A failure is thrown as one of the exceptions of `Failures.h`.

void Execute(Client& client, const Handshake& command);
void Execute(Client& client, const Version& command);
void Execute(Client& client, const Doctor& command);
void Execute(Client& client, const Register& command);
void Execute(Client& client, const Login& command);
void Execute(Client& client, const Logout& command);
void Execute(Client& client, const List& command);
void Execute(Client& client, const Stat& command);
void Execute(Client& client, const MakeFolder& command);
void Execute(Client& client, const Touch& command);
void Execute(Client& client, const Remove& command);
void Execute(Client& client, const Move& command);
void Execute(Client& client, const Get& command);
void Execute(Client& client, const Put& command);
void Execute(Client& client, const UploadStatus& command);
void Execute(Client& client, const UploadCancel& command);
void Execute(Client& client, const UploadComplete& command);
void Execute(Client& client, const Changes& command);
void Execute(Client& client, const Mappings& command);
void Execute(Client& client, const Share& command);
void Execute(Client& client, const Audit& command);
void Execute(Client& client, const WipeAcknowledgement& command);

} // namespace Command
