#include "e2e_fixture.hpp"
#include "platform/instance_lock.hpp"

namespace velk::test {
namespace {

using updater::platform::InstanceLock;
using updater::platform::LockStatus;

class ConcurrentRuns : public EndToEndTest {};
class UnreadableState : public EndToEndTest {};

// While the first run holds the installation, a second writes no log, file or registry value.
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
    EXPECT_EQ(run({}).exitCode, 0);
    expectInstalled(kRelease1);
}

// It used to read as "not installed": every run installed a second copy in Program Files.
TEST_F(UnreadableState, CorruptRegistryEndsTheRunAndInstallsNothing) {
    publish("1.0.0", "100", kRelease1);
    startServer();
    productKey("\"Version\"=\"1.0.0\n");
    const std::string corrupt = registryText();
    const ProcessResult result = run({});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("Failed to read the registry: "), std::string::npos) << result.err;
    EXPECT_FALSE(fs::exists(root() / "Program Files"));
    EXPECT_FALSE(fs::exists(installDir()));
    EXPECT_EQ(registryText(), corrupt);
}

// A version with a terminal sequence and a line end: escaped on the console and in the log.
TEST_F(EndToEndTest, LogForgingThroughRegistryTextIsShownEscaped) {
    const std::string hex = "0123456789abcdef";
    std::string utf16;  // the registry file's form of text with control characters
    for (const unsigned char c : std::string("1.0\x1b]0;owned\x07\n[ERROR] forged")) {
        utf16 += std::string{hex[c >> 4], hex[c & 15]} + ",00,";
    }
    productKey("\"Version\"=hex(1):" + utf16 + "00,00\n");
    const ProcessResult result =
        run({"--check-only", "--manifest", (installDir() / "none.json").string()});
    for (const std::string& output : {result.out, result.err, readFile(logFile())}) {
        EXPECT_EQ(output.find('\x1b'), std::string::npos) << output;
        EXPECT_EQ(output.find("\n[ERROR] forged"), std::string::npos) << output;
    }
    EXPECT_NE(result.out.find("Installed VELK version: 1.0\\x1b]0;owned\\x07\\n[ERROR] forged"),
              std::string::npos)
        << result.out;
}

}  // namespace
}  // namespace velk::test
