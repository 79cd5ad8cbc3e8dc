#pragma once

/// @file
/// What the tests of files share: a folder of their own, a cancel event, a progress sink that remembers.

#include "RawServer.h"

#include "Platform/Platform.h"
#include "QuendraHttp/QuendraHttp.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>

/// A folder that is gone with the test; a file in it that somebody still holds open is a failure where the platform tells.
class TemporaryFolder
{
public:
    TemporaryFolder() : m_path(std::filesystem::temp_directory_path() / ("quendra-test-" + std::to_string(std::random_device()())))
    {
        std::filesystem::create_directory(m_path);
    }
    ~TemporaryFolder()
    {
        std::error_code failure;
        std::filesystem::remove_all(m_path, failure);
        EXPECT_FALSE(failure) << failure.message();
    }

    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    [[nodiscard]] std::filesystem::path operator/(const std::string& name) const { return m_path / name; }

    [[nodiscard]] std::wstring Write(const std::string& name, const std::string& content) const
    {
        std::ofstream(m_path / name, std::ios::binary) << content;
        return (m_path / name).wstring();
    }

    [[nodiscard]] std::string Read(const std::string& name) const
    {
        std::ifstream file(m_path / name, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

private:
    const std::filesystem::path m_path;
};

/// A cancel event.
struct Event : CancelEvent
{
    explicit Event(bool resetsItself = false) : CancelEvent{CreateEventW(nullptr, resetsItself ? FALSE : TRUE, FALSE, nullptr)} {}
    ~Event() { CloseHandle(event); }

    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    void Signal() const { SetEvent(event); }
};

/// Remembers every call as text, "status:4 3@3 2@5 " (sizes of status texts in characters), and where it has come to.
struct ProgressRecord final : IProgressCallback
{
    explicit ProgressRecord(std::function<void()> atBlock = {}) : onBlock(std::move(atBlock)) {}

    void OnBlock(std::uint64_t blockSize, std::uint64_t position) override
    {
        calls += std::to_string(blockSize) + "@" + std::to_string(position) + " ";
        inOrder = inOrder && position == last + blockSize;
        last = position;
        if (onBlock)
            onBlock();
    }
    void OnStatusSize(std::uint32_t size) override
    {
        calls += "status:" + std::to_string(size / sizeof(wchar_t)) + " ";
        last = 0;
    }

    std::function<void()> onBlock;
    std::string calls;
    bool inOrder = true;    ///< each block began where the one before it had ended.
    std::uint64_t last = 0; ///< where the first begins, and the last has ended: of what is sent, after a status of what is received.
};
