#pragma once

/// @file
/// Types that callers and the transport share.

#include "QuendraHttp/ResultCodes.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <list>
#include <string>

/// Holds the platform event with which a caller cancels an operation. The caller owns the event and keeps it until
/// the operation returns; any thread may signal it: the operation then ends with `Result::Cancelled` at its next test. It has to be
/// a manual-reset event: an auto-reset one is reset by the first of several tests. A null event never cancels.
struct CancelEvent
{
    void* event = nullptr; ///< the platform's `HANDLE`; the caller closes it.
};

/// Receives the progress of a transfer. Called on the thread that runs the operation; must not throw.
class IProgressCallback
{
public:
    virtual ~IProgressCallback() = default; // slot 0

    /// Slot 1: a block was moved.
    /// @param blockSize  its size in bytes.
    /// @param position   bytes moved so far (download) or the position in the local file after the block (upload).
    virtual void OnBlock(std::uint64_t blockSize, std::uint64_t position) = 0;

    virtual void Reserved2() {} ///< Slot 2. Not called.
    virtual void Reserved3() {} ///< Slot 3. Not called.
    virtual void Reserved4() {} ///< Slot 4. Not called.

    /// Slot 5: called once before a download's status is read.
    /// @param size  size of the status text in bytes.
    virtual void OnStatusSize(std::uint32_t size) { static_cast<void>(size); }
};

/// A reply's body in memory.
///
/// `data` comes from `malloc` and the caller must `free` it. It is null for an empty body, else followed by a 0 byte that `length` does not
/// count.
struct ResponseBuffer
{
    char* data = nullptr;     ///< the bytes.
    std::uint64_t length = 0; ///< their number.
};

/// A version of up to four components, the major one first.
struct VersionNumber
{
    static constexpr std::size_t kMaximumComponents = 4; ///< how many components there can be.

    VersionNumber() = default;

    /// Takes the first four components at most.
    /// @param values  the components.
    VersionNumber(std::initializer_list<std::uint32_t> values)
    {
        for (const std::uint32_t value : values)
            if (count < kMaximumComponents)
                components[count++] = value;
    }

    std::array<std::uint32_t, kMaximumComponents> components{}; ///< the major one first.
    std::uint32_t count = 0;                                    ///< how many components are set, 0 to 4.
};

/// What `GenerateLink` asks the server to share.
struct ShareRequest
{
    std::wstring name;               ///< of the share, for people.
    std::wstring message;            ///< to the recipients.
    std::list<std::wstring> paths;   ///< the items' server paths.
    std::list<std::wstring> targets; ///< the recipients.
};
