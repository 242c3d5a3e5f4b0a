#include "e2e_fixture.hpp"
#include "platform/instance_lock.hpp"

namespace velk::test {
namespace {

using updater::platform::InstanceLock;
using updater::platform::LockStatus;

class ConcurrentRuns : public EndToEndTest {};
class UnreadableState : public EndToEndTest {};

// A second run on the same installation ends at once: it writes no log, file or
// registry value while the first run holds the installation.
TEST_F(ConcurrentRuns, SecondRunEndsWithoutTouchingAnything) {
    publish("1.0.0", "100", kRelease1);
    startServer();
    const std::string before = registryText();
    {
        const ScopedEnv root("VELK_SYSTEM_ROOT", this->root().string());
        const InstanceLock firstRun(installDir().string());
        ASSERT_EQ(firstRun.status(), LockStatus::Acquired);
        const ProcessResult second = run({});
        EXPECT_EQ(second.exitCode, 1);
        EXPECT_NE(second.err.find("Another VELK_Updater is already running\n"), std::string::npos) << second.err;
        EXPECT_FALSE(fs::exists(installDir())) << second.out;
        EXPECT_EQ(registryText(), before);
    }
    const ProcessResult after = run({});
    EXPECT_EQ(after.exitCode, 0) << after.err;
    EXPECT_EQ(readFile(installDir() / "VELK.dll"), "library 1.0");
}

// An unreadable registry used to read as "not installed", and every run installed a
// second copy into the default Program Files folder.
TEST_F(UnreadableState, CorruptRegistryEndsTheRunAndInstallsNothing) {
    publish("1.0.0", "100", kRelease1);
    startServer();
    productKey("\"InstallPath\"=\"" + installDir().string() + "\"\n\"Version\"=\"1.0.0\n");
    const std::string corrupt = registryText();
    const ProcessResult result = run({});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("Failed to read the registry: "), std::string::npos) << result.err;
    EXPECT_FALSE(fs::exists(root() / "Program Files"));
    EXPECT_FALSE(fs::exists(installDir()));
    EXPECT_EQ(registryText(), corrupt);
}

}  // namespace
}  // namespace velk::test
