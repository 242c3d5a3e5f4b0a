#include <pwd.h>
#include <unistd.h>

#include "e2e_fixture.hpp"

namespace velk::test {
namespace {

const std::string kLoggingKey = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quenmark\\VELK\\Logging]\n";

class ServicesRunTest : public EndToEndTest {
protected:
    void driverFiles() {
        writeFile(installDir() / "VELK_Sys.inf", "[Version]\n");
        writeFile(installDir() / "VELK_Sys.sys", "sys");
        writeFile(installDir() / "VELK_Sys.cat", "cat");
    }
};

// The services flow as a user follows it: the mode's console lines and its log, in order
// (the logger's worker may write its console lines between the mode's own).
TEST_F(ServicesRunTest, InstallServicesRunsTheFallbackFirstAndReportsTheState) {
    driverFiles();
    const ProcessResult result = run({"--install-services"});
    EXPECT_EQ(result.exitCode, 0) << result.err;
    EXPECT_TRUE(printedInOrder(
        result.out, {"Installing missing VELK service to ensure game functionality...\n",
                     "VELK services installed successfully\n", "Service installation status:\n",
                     "  VELK Service: INSTALLED\n", "  VELK Driver: INSTALLED\n",
                     "NOTE: Services are installed but not started. They will be managed by the game launcher.\n"}))
        << result.out;
    EXPECT_EQ(result.out.find("Checking VELK installation state"), std::string::npos);
    EXPECT_TRUE(printedInOrder(
        logText(), {"[WARNING] VELKSvc not found on system - installing as fallback to ensure game functionality\n",
                    "[INFO] VELKSvc installed successfully as fallback\n", "[INFO] VELK service already installed\n",
                    "[INFO] Executing: pnputil.exe /add-driver \"" + (installDir() / "VELK_Sys.inf").string() +
                        "\" /install\n",
                    "[INFO] VELK driver installed successfully\n", "[INFO]   VELK Service: INSTALLED\n",
                    "[INFO]   VELK Driver: INSTALLED\n"}))
        << logText();
    EXPECT_NE(registryText().find("ImagePath\"=hex(2):"), std::string::npos);
}

// Piped into another program (`VELK_Updater ... | cat`), the console carries plain text:
// colour sequences there would end up as stray bytes in a file or a pager.
TEST_F(ServicesRunTest, WithoutTheDriverItFailsPlainlyAndQuietKeepsOnlyTheModeResult) {
    const ProcessResult piped = run({"--install-services"});
    EXPECT_EQ(piped.exitCode, 1);
    EXPECT_NE(piped.out.find("[INFO]"), std::string::npos) << piped.out;
    EXPECT_NE(piped.err.find("[ERROR]"), std::string::npos) << piped.err;
    EXPECT_EQ(piped.out.find('\x1b'), std::string::npos) << piped.out;
    EXPECT_EQ(piped.err.find('\x1b'), std::string::npos) << piped.err;
    EXPECT_NE(registryText().find("\\VELKSvc]"), std::string::npos) << "the service goes in first";

    const ProcessResult result = run({"--install-services", "--quiet"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out.find("Installing missing VELK service"), std::string::npos);
    EXPECT_NE(result.out.find("Failed to install one or more VELK services\n"), std::string::npos);
    EXPECT_EQ(result.err, "");  // no console logging either

    driverFiles();
    const ProcessResult quiet = run({"--install-services", "--quiet"});
    EXPECT_EQ(quiet.exitCode, 0);
    EXPECT_NE(quiet.out.find("VELK services installed successfully\n"), std::string::npos);
    EXPECT_EQ(quiet.out.find("Service installation status:"), std::string::npos);
}

// The registry can switch the log file off while the console keeps the mode's lines; the
// level and the background switch (no colours) apply to what is logged.
TEST_F(ServicesRunTest, LoggingSwitches) {
    productKey(installPathValue(), kLoggingKey + "\"EnableUpdaterLogs\"=dword:00000000\n");
    publish("1.0.0", "1", kRelease1);
    startServer();
    const ProcessResult off = run({});
    EXPECT_EQ(off.exitCode, 0);
    EXPECT_FALSE(fs::exists(logFile()));
    EXPECT_NE(off.out.find("Update process completed successfully\n"), std::string::npos);
    EXPECT_EQ(off.out.find("[INFO]"), std::string::npos);

    productKey(installPathValue());
    const ProcessResult warningsOnly = run({"--log-level", "warning"});
    EXPECT_EQ(warningsOnly.out.find("[INFO]"), std::string::npos);
    EXPECT_NE(warningsOnly.err.find("[WARNING]"), std::string::npos);
    EXPECT_EQ(logText().find("[INFO]"), std::string::npos);
    const ProcessResult plain = run({"--background"});
    EXPECT_NE(plain.out.find("[INFO] [] VELK Update Client starting..."), std::string::npos);
    EXPECT_EQ(plain.out.find("\033["), std::string::npos);
}

// Without root the program asks sudo for itself. A stand-in sudo on PATH refuses, as a
// user declining the prompt would.
TEST_F(ServicesRunTest, UnprivilegedRunAsksForElevation) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to run the updater as another user";
    const passwd* nobody = ::getpwnam("nobody");
    if (nobody == nullptr) GTEST_SKIP() << "no unprivileged user 'nobody' on this machine";
    const fs::path bin = dir_ / "bin";
    writeFile(bin / "sudo", "#!/bin/sh\necho \"$@\" >> \"$(dirname \"$0\")/asked\"\n[ \"$1\" = \"-v\" ] && exit 1\nexit 0\n");
    fs::permissions(bin / "sudo", fs::perms::owner_all | fs::perms::group_exec | fs::perms::others_exec | fs::perms::others_read);
    fs::permissions(dir_.path(), fs::perms::all);
    fs::permissions(bin, fs::perms::all);
    const std::string setpriv = "/usr/bin/setpriv";
    if (!fs::exists(setpriv)) GTEST_SKIP() << "setpriv is not installed";
    const ProcessResult result = runProcess(
        setpriv, {"--reuid=nobody", "--regid=nogroup", "--clear-groups", builtProgram("VELK_Updater"), "--check-only"},
        ProcessOptions{{{"PATH", bin.string() + ":/usr/bin:/bin"}, {"VELK_SYSTEM_ROOT", root().string()}}, "", ""});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, "VELK Updater requires administrator privileges.\nRequesting elevation...\n");
    EXPECT_EQ(result.err, "Failed to elevate privileges: User cancelled UAC elevation prompt\n"
                          "Please run this program as Administrator.\n");
    EXPECT_EQ(readFile(bin / "asked"), "-v\n");
}

}  // namespace
}  // namespace velk::test

namespace velk::test {
namespace {

class StartFailureTest : public EndToEndTest {};

TEST_F(StartFailureTest, LoggerThatCannotStartEndsWithOne) {
    writeFile(installDir() / "logs", "a file where the log folder belongs");
    const ProcessResult result = run({});
    EXPECT_EQ(result.exitCode, 1);
    // The folder's path exists (as a file), so only opening the log file fails.
    EXPECT_EQ(result.err, "Failed to open log file: " + logFile().string() + "\nFailed to initialize logger\n");
}

TEST_F(StartFailureTest, UpdateClientThatCannotStartEndsWithOne) {
    productKey("", kLoggingKey + "\"EnableUpdaterLogs\"=dword:00000000\n");
    writeFile(dir_ / "not-a-folder", "x");
    const ProcessResult result = run({"--install-dir", (dir_ / "not-a-folder").string()});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_NE(result.err.find("Failed to initialize update client\n"), std::string::npos);
}

}  // namespace
}  // namespace velk::test
