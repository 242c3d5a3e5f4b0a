#include "e2e_fixture.hpp"

namespace velk::test {
namespace {

class UpdateRunTest : public EndToEndTest {
protected:
    void expectInstalled(const std::map<std::string, std::string>& files) {
        for (const auto& [name, content] : files) EXPECT_EQ(readFile(installDir() / name), content) << name;
    }
};

TEST_F(UpdateRunTest, FreshInstallThenNothingToDo) {
    publish("1.0.0", "100", kRelease1, {"--zip"});
    startServer();
    const ProcessResult first = run({});
    EXPECT_EQ(first.exitCode, 0) << first.err;
    EXPECT_NE(first.out.find("Running with administrator privileges.\n"), std::string::npos);
    EXPECT_NE(first.out.find("WARNING: VELK installation incomplete or corrupted\n"), std::string::npos);
    EXPECT_NE(first.out.find("Missing files: VELK_Service.exe, VELK.dll, VELK_Launcher.exe\n"), std::string::npos)
        << first.out;
    EXPECT_NE(first.out.find("WARNING: Could not determine installed VELK version\n"), std::string::npos);
    EXPECT_NE(first.out.find("Update process completed successfully\n"), std::string::npos);
    expectInstalled(kRelease1);
    EXPECT_NE(registryText().find("\"Version\"=\"1.0.0\""), std::string::npos);
    EXPECT_NE(registryText().find("\"BuildNumber\"=\"100\""), std::string::npos);
    EXPECT_TRUE(logged("[INFO] VELK Update Client starting..."));
    EXPECT_TRUE(logged("[INFO] Manifest URL: http://127.0.0.1:" + std::to_string(VELK_LOOPBACK_PORT) + "/update/manifest.json"));
    EXPECT_TRUE(logged("[INFO] Extracted zip for file: VELK.dll"));
    EXPECT_TRUE(logged("[INFO] Updated registry with new version: 1.0.0 (build 100)"));
    EXPECT_EQ(logLines().back(), "[INFO] VELK Update Client shutting down");

    const ProcessResult second = run({});
    EXPECT_EQ(second.exitCode, 0);
    EXPECT_NE(second.out.find("VELK installation state: OK\n"), std::string::npos);
    EXPECT_NE(second.out.find("Installed VELK version: 1.0.0 (build 100)\n"), std::string::npos);
    EXPECT_TRUE(logged("[INFO] No update required - already at latest version (1.0.0) with all files current"));
}

TEST_F(UpdateRunTest, RepairsACorruptedFileAndUpgradesARecordedVersion) {
    publish("1.0.0", "100", kRelease1);
    startServer();
    ASSERT_EQ(run({}).exitCode, 0);
    writeFile(installDir() / "VELK.dll", "tampered!!!");
    ASSERT_EQ(run({}).exitCode, 0);
    EXPECT_TRUE(logged("[INFO] File repair needed despite same version"));
    expectInstalled(kRelease1);

    publish("2.0.0", "200", kRelease2);
    const ProcessResult upgrade = run({"--verbose"});
    EXPECT_EQ(upgrade.exitCode, 0);
    expectInstalled(kRelease2);
    EXPECT_NE(registryText().find("\"Version\"=\"2.0.0\""), std::string::npos);
    EXPECT_TRUE(logged("[INFO] Version comparison: 2.0.0 vs 1.0.0 = NEWER"));
    EXPECT_TRUE(logged("[DEBUG] File integrity OK: VELK_Launcher.exe"));
    EXPECT_NE(upgrade.out.find("[HTTP DEBUG] Status Code: 200"), std::string::npos);
}

TEST_F(UpdateRunTest, DisabledDowngradeIsRefusedUnlessForced) {
    productKey("\"InstallPath\"=\"" + installDir().string() + "\"\n\"Version\"=\"2.1.0\"\n\"BuildNumber\"=\"5\"\n");
    publish("2.0.9", "4", kRelease1);
    startServer();
    const ProcessResult refused = run({"--disable-downgrades"});
    EXPECT_EQ(refused.exitCode, 0);
    EXPECT_NE(refused.out.find("Update process failed or no updates available\n"), std::string::npos);
    EXPECT_TRUE(logged("[INFO] Allow downgrades: DISABLED"));
    EXPECT_TRUE(logged("[ERROR] Manifest verification failed: Version compatibility check failed"));
    EXPECT_FALSE(fs::exists(installDir() / "VELK.dll"));

    const ProcessResult forced = run({"--disable-downgrades", "--force"});
    EXPECT_EQ(forced.exitCode, 0);
    EXPECT_TRUE(logged("[INFO] Force updates: ENABLED"));
    expectInstalled(kRelease1);
    EXPECT_NE(registryText().find("\"Version\"=\"2.0.9\""), std::string::npos);
}

TEST_F(UpdateRunTest, CheckModeInstallsAndItsFailureEndsWithOne) {
    publish("1.0.0", "100", kRelease1, {"--channel", "test"});
    startServer();
    const ProcessResult check = run({"--check-only", "--channel", "test"});
    EXPECT_EQ(check.exitCode, 0);
    EXPECT_NE(check.out.find("Update check completed successfully\n"), std::string::npos);
    expectInstalled(kRelease1);

    const ProcessResult missing = run({"--check-only", "--channel", "nightly"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.out.find("Update check failed\n"), std::string::npos);
    EXPECT_TRUE(logged("[ERROR] Update check failed"));
    const ProcessResult update = run({"--channel", "nightly"});
    EXPECT_EQ(update.exitCode, 0);
    EXPECT_NE(update.out.find("Update process failed or no updates available\n"), std::string::npos);
}

TEST_F(UpdateRunTest, LocalManifestFileNeedsNoManifestUrl) {
    publish("1.0.0", "100", kRelease1);
    startServer();
    const ProcessResult result = run({"--manifest", (site() / "manifest.json").string()});
    EXPECT_EQ(result.exitCode, 0);
    expectInstalled(kRelease1);
    for (const auto& line : logLines()) EXPECT_EQ(line.find("Manifest URL: "), std::string::npos) << line;
    EXPECT_TRUE(logged("[INFO] Loading manifest from file: " + (site() / "manifest.json").string()));
    EXPECT_EQ(readFile(dir_ / "requests.log").find("/update/"), std::string::npos);
}

TEST_F(UpdateRunTest, ServerFailingMidwayLeavesAConsistentInstallationThatTheNextRunCompletes) {
    publish("1.0.0", "100", kRelease1);
    startServer();
    ASSERT_EQ(run({}).exitCode, 0);
    publish("2.0.0", "200", kRelease2);
    // Every base fails for one file of the new release.
    writeFile(rules(), "/cdn/files/VELK_Service.exe 500\n/mirror/files/VELK_Service.exe short\n"
                       "/origin/files/VELK_Service.exe 503\n");
    const ProcessResult broken = run({});
    EXPECT_EQ(broken.exitCode, 0);
    EXPECT_NE(broken.out.find("Update process failed or no updates available\n"), std::string::npos);
    EXPECT_EQ(run({"--check-only"}).exitCode, 1);
    // Old or new, never torn; the version record still says 1.0.0.
    EXPECT_EQ(readFile(installDir() / "VELK.dll"), "library 2.0");
    EXPECT_FALSE(fs::exists(installDir() / "VELK_Service.exe"));
    EXPECT_NE(registryText().find("\"Version\"=\"1.0.0\""), std::string::npos);
    // A failed download reports the temporary file it was writing, the URLs tried on the
    // same log line (their line ends shown escaped).
    const std::string report = "[ERROR] [FAILED] Failed: " + (tmp() / "VELK_Service.exe.tmp").string() +
                               " - Download failed after attempts (zip then plain per base):\\n";
    const auto lines = logLines();
    EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string& line) { return line.rfind(report, 0) == 0; }));

    writeFile(rules(), "");
    EXPECT_EQ(run({}).exitCode, 0);
    expectInstalled(kRelease2);
    EXPECT_NE(registryText().find("\"Version\"=\"2.0.0\""), std::string::npos);
}

}  // namespace
}  // namespace velk::test
