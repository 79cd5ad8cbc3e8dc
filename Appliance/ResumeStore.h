#pragma once

/// @file
/// Uploads that come in chunks: what has come so far, and what it is to become. It outlives the process.

#include "ItemStore.h"
#include "StateFolder.h"

#include <condition_variable>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

namespace ApplianceParts
{

struct ResumableUpload
{
    std::string path; ///< of the item that it is to become.
    std::uint64_t size = 0;
    ItemChanges changes;
    std::string revision; ///< of the item that it is to replace; empty: of any.
    std::optional<ItemTime> expiry;
};

/// An upload is a file with the bytes that have come, beside a file of JSON that says what they are for. Its bytes are only
/// touched by who holds its lease. Safe to use from several threads.
class ResumeStore
{
public:
    explicit ResumeStore(const StateFolder& state);

    /// Exclusive use of an upload, which need not exist yet; given back when the lease ends.
    using Lease = std::shared_ptr<const void>;

    /// Waits a little: the thread of a connection that broke may be about to notice.
    /// @throws ApiError where the upload stays in use, or its id is none.
    [[nodiscard]] Lease Acquire(const std::string& id);

    [[nodiscard]] bool IsBusy(const std::string& id) const;

    /// Begins an upload without bytes; an earlier one of this id goes.
    void Begin(const std::string& id, const ResumableUpload& upload);

    /// @throws ApiError where there is no such upload (any more), or it is another item's.
    [[nodiscard]] ResumableUpload Get(const std::string& id, const ItemPath& path) const;

    [[nodiscard]] std::filesystem::path BytesOf(const std::string& id) const;
    [[nodiscard]] std::uint64_t Received(const std::string& id) const;
    void Discard(const std::string& id) const;

private:
    [[nodiscard]] std::optional<ResumableUpload> Load(const std::string& id) const;
    [[nodiscard]] static std::string FileName(const std::string& id, const char* extension);
    void DiscardExpired() const;

    const StateFolder& m_state;
    mutable std::mutex m_mutex;
    std::condition_variable m_released;
    std::set<std::string> m_busy;
};

} // namespace ApplianceParts
