#include "platform/instance_lock.hpp"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include "support/test_support.hpp"

namespace velk::updater::platform {
namespace {

namespace fs = std::filesystem;

// Two runs on one installation raced each other's renames and registry writes; the
// lock lets only one of them go on.
class ConcurrentRuns : public test::SystemRootTest {
protected:
    fs::path install() const { return root() / "install"; }
};

TEST_F(ConcurrentRuns, SecondLockOfOneInstallationIsBusyUntilTheFirstIsReleased) {
    fs::create_directories(install() / "sub");
    fs::create_directory_symlink(install(), root() / "link");
    {
        const InstanceLock first(install().string());
        ASSERT_EQ(first.status(), LockStatus::Acquired);
        // Other spellings of the same folder name the same installation.
        for (const fs::path& same : {install(), fs::path(install().string() + "/"), install() / "sub" / "..",
                                     root() / "link"}) {
            EXPECT_EQ(InstanceLock(same.string()).status(), LockStatus::Busy) << same;
        }
        EXPECT_EQ(InstanceLock((root() / "other").string()).status(), LockStatus::Acquired);
    }
    EXPECT_EQ(InstanceLock(install().string()).status(), LockStatus::Acquired);
}

// The elevated copy of a run is a child process; its lock counts, and dies with it.
TEST_F(ConcurrentRuns, LockHeldByAnotherProcessCountsUntilThatProcessDies) {
    int ready[2];
    ASSERT_EQ(::pipe(ready), 0);
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const InstanceLock held(install().string());
        const char state = held.status() == LockStatus::Acquired ? 'y' : 'n';
        (void)!::write(ready[1], &state, 1);
        ::pause();  // until killed: the lock is never released by the program
        ::_exit(0);
    }
    ::close(ready[1]);
    char state = 0;
    ASSERT_EQ(::read(ready[0], &state, 1), 1);
    ::close(ready[0]);
    EXPECT_EQ(state, 'y');
    EXPECT_EQ(InstanceLock(install().string()).status(), LockStatus::Busy);

    ::kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(InstanceLock(install().string()).status(), LockStatus::Acquired);
}

}  // namespace
}  // namespace velk::updater::platform
