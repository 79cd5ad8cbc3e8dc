#pragma once

/// @file
/// How each operation handles a reply's status and an empty body: one row per operation, and the functions that turn a refusal into a code.
/// `Docs/Rest.md` shows the rows; a test compares the two.

#include "Tracing.h"

#include "QuendraHttp/Types.h"

#include <cstdint>
#include <optional>
#include <string>

/// Which part of a reply is judged first.
enum class JudgedFirst
{
    Body,  ///< the status is ignored if there is no body.
    Status ///< a missing body matters for a success, and where the row has `refusedWithoutBody`.
};

/// How the code of a refusal is formed.
enum class RefusalCode
{
    ErrorIdOrStatus, ///< `Result::RefusalBase` plus the body's "errorId", or plus the status where it has none.
    ErrorIdAlone,    ///< `Result::RefusalBase` plus the body's "errorId", or alone where it has none.
    StatusAlone,     ///< `Result::RefusalBase` plus the status: the built-in transport's own code for a reply into a file.
    BareStatus       ///< the status.
};

/// Which replies are written to the trace before they are judged.
enum class LoggedReplies
{
    All,
    RefusalsWithBody,
    None ///< none, or the operation writes them itself.
};

/// One operation's row.
struct Judgement
{
    const char* operation; ///< as in `Docs/Rest.md`.
    JudgedFirst first = JudgedFirst::Body;
    /// The result without a body: with `JudgedFirst::Body` for any status, with `Status` for 200 and 204. Nothing: no body is needed.
    std::optional<ResultCode> withoutBody = Result::NotEnoughMemory;
    /// The result of a refusal without a body, if it differs from the refusal's code.
    std::optional<ResultCode> refusedWithoutBody = std::nullopt;
    RefusalCode refusal = RefusalCode::ErrorIdOrStatus;
    /// A 401 becomes `Result::Retry` if another login has changed the session token meanwhile.
    bool checksSession = false;
    bool acceptsNoContent = false;      ///< 204 is a success like 200.
    bool refusesFailedTransfer = false; ///< a failed transfer counts as a refusal with status 0.
    LoggedReplies logged = LoggedReplies::All;

    TraceFormat<ResultCode> transferFailed{"GetResponse failed, error code: %d"};
    TraceFormat<> noBody{"Response memory is NULL!"};
    TraceFormat<std::uint32_t> refused{"GetHTTPStatus shows failure, code: %d"};
};

namespace Judgements
{

// Init
inline constexpr Judgement kEndpoints{.operation = "GET /endpoints"};
inline constexpr Judgement kServerMode{.operation = "GET ENDPOINT/init", .noBody = "Received a NULL response buffer."};

inline constexpr Judgement kVersion{.operation = "Version"};
inline constexpr Judgement kLogin{.operation = "Login"};
inline constexpr Judgement kRegister{.operation = "Register",
                                     .first = JudgedFirst::Status,
                                     .withoutBody = std::nullopt,
                                     .acceptsNoContent = true,
                                     .logged = LoggedReplies::None};
inline constexpr Judgement kGetChanges{.operation = "GetChanges",
                                       .withoutBody = Result::Success,
                                       .checksSession = true,
                                       .transferFailed = "ERROR: GetResponse failed, error code: %d",
                                       .noBody = "There are no notifications.",
                                       .refused = "ERROR: GetHTTPStatus shows failure, code: %d"};
inline constexpr Judgement kGetRemoteFolderMap{.operation = "GetRemoteFolderMap", .transferFailed = "GetResponse failed, error code: 0x%x"};
inline constexpr Judgement kGetPathAttributes{.operation = "GetPathAttributes"};
inline constexpr Judgement kSetPathAttributes{.operation = "SetPathAttributes"};
inline constexpr Judgement kGetPathListing{.operation = "GetPathListing", .checksSession = true};
inline constexpr Judgement kDeletePath{.operation = "DeletePath", .refusesFailedTransfer = true};
inline constexpr Judgement kRenamePath{.operation = "RenamePath"};
inline constexpr Judgement kAcknowledgeRemoteWipe{.operation = "AcknowledgeRemoteWipe",
                                                  .first = JudgedFirst::Status,
                                                  .withoutBody = std::nullopt,
                                                  .refusal = RefusalCode::BareStatus,
                                                  .transferFailed = "ReceiveResponse failed, error code: %d"};
inline constexpr Judgement kCreateFolder{.operation = "CreateFolder"};
inline constexpr Judgement kUploadFile{.operation = "UploadFile",
                                       .first = JudgedFirst::Status,
                                       .withoutBody = Result::InvalidServerResponse,
                                       .checksSession = true,
                                       .logged = LoggedReplies::RefusalsWithBody};
inline constexpr Judgement kResumableUpload{.operation = "ResumableUpload",
                                            .first = JudgedFirst::Status,
                                            .withoutBody = std::nullopt,
                                            .refusedWithoutBody = Result::InvalidServerResponse,
                                            .checksSession = true,
                                            .logged = LoggedReplies::RefusalsWithBody};
inline constexpr Judgement kCancelUpload{
    .operation = "CancelUpload", .first = JudgedFirst::Status, .withoutBody = std::nullopt, .checksSession = true};
inline constexpr Judgement kCompleteUpload{
    .operation = "CompleteUpload", .first = JudgedFirst::Status, .withoutBody = std::nullopt, .checksSession = true};
inline constexpr Judgement kGetResumableUploadMetadata{.operation = "GetResumableUploadMetadata",
                                                       .first = JudgedFirst::Status,
                                                       .checksSession = true,
                                                       .transferFailed = "GetResponse failed, error code: 0x%x"};
inline constexpr Judgement kPublishSyncStats{
    .operation = "PublishSyncStats", .first = JudgedFirst::Status, .withoutBody = std::nullopt, .logged = LoggedReplies::None};
inline constexpr Judgement kGenerateLink{.operation = "GenerateLink"};

// Downloads. Their replies are written to a file; no body means an empty file.
inline constexpr Judgement kDownloadFile{.operation = "DownloadFile, whole",
                                         .first = JudgedFirst::Status,
                                         .withoutBody = std::nullopt,
                                         .refusal = RefusalCode::ErrorIdAlone,
                                         .transferFailed = "SendRequestGetResponse failed, error code: %d"};
inline constexpr Judgement kDownloadDelta{.operation = "DownloadFile, delta",
                                          .first = JudgedFirst::Status,
                                          .withoutBody = std::nullopt,
                                          .refusal = RefusalCode::StatusAlone,
                                          .transferFailed = "httpRequest->GetResponse, error code: %d"};
inline constexpr Judgement kDownloadData{.operation = "DownloadData",
                                         .first = JudgedFirst::Status,
                                         .withoutBody = std::nullopt,
                                         .refusal = RefusalCode::StatusAlone,
                                         .transferFailed = "GetResponse failed, error code: 0x%x"};

/// All rows, in the order of the interface's slots.
inline constexpr const Judgement* kAll[] = {&kEndpoints,
                                            &kServerMode,
                                            &kVersion,
                                            &kLogin,
                                            &kRegister,
                                            &kGetChanges,
                                            &kGetRemoteFolderMap,
                                            &kGetPathAttributes,
                                            &kSetPathAttributes,
                                            &kGetPathListing,
                                            &kDeletePath,
                                            &kRenamePath,
                                            &kAcknowledgeRemoteWipe,
                                            &kCreateFolder,
                                            &kUploadFile,
                                            &kResumableUpload,
                                            &kCancelUpload,
                                            &kCompleteUpload,
                                            &kGetResumableUploadMetadata,
                                            &kDownloadFile,
                                            &kDownloadDelta,
                                            &kDownloadData,
                                            &kPublishSyncStats,
                                            &kGenerateLink};

} // namespace Judgements

/// The code of a refused request: `Result::RefusalBase` plus the decimal number in the string member "errorId" of the body, or plus the
/// status where it has none.
[[nodiscard]] ResultCode MapHttpError(std::uint32_t status, const ResponseBuffer& response);
