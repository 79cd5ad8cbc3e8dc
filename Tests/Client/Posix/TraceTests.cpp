// The file that a trace is written to.

#include "Client/Program.h"
#include "TransferSupport.h"

#include <array>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

TEST(Trace, IsItsOwnersAloneFromTheMomentItIsThere)
{
    const TemporaryFolder folder;
    const int changes = ::inotify_init1(IN_NONBLOCK);
    ASSERT_GE(::inotify_add_watch(changes, (folder / "").c_str(), IN_ATTRIB), 0);
    EXPECT_EQ(RunProgram({"handshake", "--server", "a..b", "--trace", (folder / "trace").string()}), 1);
    struct stat status = {};
    ASSERT_EQ(::stat((folder / "trace").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777, 0600U);
    std::array<char, 4096> change{};
    EXPECT_EQ(::read(changes, change.data(), change.size()), -1) << "it was somebody else's before";
    ::close(changes);
}

} // namespace
