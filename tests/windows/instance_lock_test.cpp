// The installation lock of the Windows backend: one holder per installation, whatever
// the spelling of its folder.
#include <gtest/gtest.h>

#include <string>

#include "platform/instance_lock.hpp"

namespace velk::updater::platform {
namespace {

TEST(ConcurrentRuns, SecondLockOfOneInstallationIsBusyUntilTheFirstIsReleased) {
    const std::string install = "C:\\VelkLockTest\\Install";
    {
        const InstanceLock first(install);
        ASSERT_EQ(first.status(), LockStatus::Acquired);
        for (const std::string& same : {install, install + "\\", std::string("c:\\velklocktest\\INSTALL"),
                                        std::string("C:/VelkLockTest/Other/../Install")}) {
            EXPECT_EQ(InstanceLock(same).status(), LockStatus::Busy) << same;
        }
        EXPECT_EQ(InstanceLock("C:\\VelkLockTest\\Other").status(), LockStatus::Acquired);
    }
    EXPECT_EQ(InstanceLock(install).status(), LockStatus::Acquired);
}

}  // namespace
}  // namespace velk::updater::platform
