#include "platform/instance_lock.hpp"

#include <gtest/gtest.h>
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

// The elevated copy of a run is a child process; its lock dies with it, also when the
// process ends without releasing it. (A live holder in another process counts: the
// end-to-end guard test runs the updater against a lock held by the test.)
TEST_F(ConcurrentRuns, LockOfAProcessThatDiedIsFreeAgain) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const InstanceLock held(install().string());
        ::_exit(held.status() == LockStatus::Acquired ? 0 : 1);  // no destructor runs: never released
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_EQ(InstanceLock(install().string()).status(), LockStatus::Acquired);
}

}  // namespace
}  // namespace velk::updater::platform
