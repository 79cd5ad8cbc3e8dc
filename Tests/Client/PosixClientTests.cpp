// What the program asks of the system on Linux.

#include "Client/System.h"
#include "FakeApi.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <future>
#include <sys/stat.h>

namespace
{

unsigned ModeOf(const std::filesystem::path& path)
{
    struct stat found = {};
    return stat(path.c_str(), &found) == 0 ? found.st_mode & 0777U : 0U;
}

TEST(PosixSystem, WritesPrivateFilesAsAWhole)
{
    const ScratchFolder folder;
    const auto path = folder.Path() / "new" / "session.json";
    const mode_t previous = umask(0);
    EXPECT_FALSE(System::WritePrivateFile(path, "first, and longer"));
    umask(previous);
    EXPECT_EQ(ModeOf(path), 0600U);

    std::filesystem::permissions(path, std::filesystem::perms::all);
    EXPECT_FALSE(System::WritePrivateFile(path, "second"));
    EXPECT_EQ(ModeOf(path), 0600U);
    std::string content;
    std::getline(std::ifstream(path), content);
    EXPECT_EQ(content, "second");
    // Nothing of the way there is left over, also after a failure.
    EXPECT_TRUE(System::WritePrivateFile(folder.Path() / "new", "a folder is in the way"));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(folder.Path()), {}), 1);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(path.parent_path()), {}), 1);
}

TEST(PosixSystem, HandsCtrlCToAThread)
{
    std::promise<void> told;
    {
        const auto watch = System::WatchInterrupts([&told] { told.set_value(); });
        std::raise(SIGINT);
        EXPECT_EQ(told.get_future().wait_for(std::chrono::seconds(10)), std::future_status::ready);
    }
    // Without one, nothing is told and the signal is as it was before.
    static_cast<void>(System::WatchInterrupts([] { FAIL(); }));
    struct sigaction action = {};
    sigaction(SIGINT, nullptr, &action);
    EXPECT_EQ(action.sa_handler, SIG_DFL);
}

} // namespace
