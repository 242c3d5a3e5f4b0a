#include "e2e_fixture.hpp"

namespace velk::test {
namespace {

using UpdateRunTest = EndToEndTest;

TEST_F(UpdateRunTest, FreshInstallThenNothingToDoThenANewVersionOfTheSameFiles) {
    publish("1.0.0", "100", kRelease1, {"--zip"});
    startServer();
    const ProcessResult first = run({});
    EXPECT_EQ(first.exitCode, 0) << first.err;
    EXPECT_TRUE(printedInOrder(first.out, {"Running with administrator privileges.\n",
                                           "WARNING: VELK installation incomplete or corrupted\n",
                                           "Missing files: VELK_Service.exe, VELK.dll, VELK_Launcher.exe\n",
                                           "WARNING: Could not determine installed VELK version\n",
                                           "Update process completed successfully\n"}))
        << first.out;
    expectInstalled(kRelease1);
    EXPECT_TRUE(versionRecorded("1.0.0"));
    EXPECT_NE(registryText().find("\"BuildNumber\"=\"100\""), std::string::npos);
    EXPECT_TRUE(logged("[INFO] VELK Update Client starting..."));
    EXPECT_TRUE(logged("[INFO] Manifest URL: http://127.0.0.1:" + std::to_string(VELK_LOOPBACK_PORT) +
                       "/update/manifest.json"));
    EXPECT_TRUE(logged("[INFO] Extracted zip for file: VELK.dll"));
    EXPECT_TRUE(logged("[INFO] Updated registry with new version: 1.0.0 (build 100)"));
    EXPECT_EQ(logLines().back(), "[INFO] VELK Update Client shutting down");

    fs::remove(logFile());
    const ProcessResult second = run({});
    EXPECT_EQ(second.exitCode, 0);
    EXPECT_NE(second.out.find("VELK installation state: OK\n"), std::string::npos);
    EXPECT_NE(second.out.find("Installed VELK version: 1.0.0 (build 100)\n"), std::string::npos);
    EXPECT_TRUE(
        logged("[INFO] No update required - already at latest version (1.0.0) with all files current"));
    EXPECT_FALSE(logged("[INFO] File: VELK.dll")) << "nothing is downloaded";

    // A newer release whose files are all in place only moves the version record.
    fs::remove(logFile());
    publish("1.0.1", "101", kRelease1);
    EXPECT_EQ(run({}).exitCode, 0);
    EXPECT_TRUE(logged("[INFO] No files need updating - all files are already current"));
    EXPECT_FALSE(logged("[INFO] File: VELK.dll"));
    EXPECT_TRUE(versionRecorded("1.0.1"));
}

TEST_F(UpdateRunTest, RepairsACorruptedFileAndUpgradesOnlyTheChangedFiles) {
    publish("1.0.0", "100", kRelease1);
    startServer();
    ASSERT_EQ(run({}).exitCode, 0);
    writeFile(installDir() / "VELK.dll", "tampered!!!");
    ASSERT_EQ(run({}).exitCode, 0);
    EXPECT_TRUE(logged("[INFO] File repair needed despite same version"));
    expectInstalled(kRelease1);

    fs::remove(logFile());
    publish("2.0.0", "200", kRelease2);
    const ProcessResult upgrade = run({"--verbose"});
    EXPECT_EQ(upgrade.exitCode, 0);
    expectInstalled(kRelease2);
    EXPECT_TRUE(versionRecorded("2.0.0"));
    EXPECT_TRUE(logged("[INFO] Version comparison: 2.0.0 vs 1.0.0 = NEWER"));
    EXPECT_TRUE(logged("[DEBUG] File integrity OK: VELK_Launcher.exe"));
    EXPECT_TRUE(logged("[INFO] File: VELK.dll"));
    EXPECT_FALSE(logged("[INFO] File: VELK_Launcher.exe")) << "an unchanged file is not downloaded";
    EXPECT_NE(upgrade.out.find("[HTTP DEBUG] Status Code: 200"), std::string::npos);
}

// Versions compare by their numbers, not their text ("10.0.0" is not older than "9.0.0"). A
// refused release is refused before the check pass, which would delete a damaged file.
TEST_F(UpdateRunTest, DisabledDowngradeIsRefusedBeforeAnyFileIsTouchedUnlessForced) {
    struct Row {
        std::string installed;
        std::string offered;
        bool accepted;
    };
    startServer();
    for (const Row& row : std::vector<Row>{{"2.1.0", "2.0.9", false},
                                           {"10.0.0", "9.0.0", false},
                                           {"1.2.10", "1.2.9", false},
                                           {"9.0.0", "10.0.0", true}}) {
        SCOPED_TRACE(row.installed + " -> " + row.offered);
        fs::remove_all(installDir());
        writeFile(installDir() / "VELK.dll", "damaged");
        productKey(installPathValue() + "\"Version\"=\"" + row.installed + "\"\n\"BuildNumber\"=\"5\"\n");
        publish(row.offered, "5", kRelease1);
        const ProcessResult result = run({"--disable-downgrades"});
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_TRUE(logged("[INFO] Allow downgrades: DISABLED"));
        EXPECT_EQ(readFile(installDir() / "VELK.dll"), row.accepted ? kRelease1.at("VELK.dll") : "damaged");
        EXPECT_TRUE(versionRecorded(row.accepted ? row.offered : row.installed));
        if (row.accepted) {
            EXPECT_TRUE(logged("[INFO] Version validation successful: Upgrade: " + row.installed + " -> " +
                               row.offered));
        } else {
            EXPECT_NE(result.out.find("Update process failed or no updates available\n"), std::string::npos);
            EXPECT_TRUE(logged("[WARNING] Downgrade detected: " + row.offered + " < " + row.installed));
            EXPECT_TRUE(logged("[ERROR] Manifest verification failed: Version compatibility check failed"));
        }
    }

    productKey(installPathValue() + "\"Version\"=\"2.1.0\"\n\"BuildNumber\"=\"5\"\n");
    publish("2.0.9", "4", kRelease1);
    EXPECT_EQ(run({"--disable-downgrades", "--force"}).exitCode, 0);
    EXPECT_TRUE(logged("[INFO] Force updates: ENABLED"));
    expectInstalled(kRelease1);
    EXPECT_TRUE(versionRecorded("2.0.9"));
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
    EXPECT_FALSE(loggedStartingWith("[INFO] Manifest URL: "));
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
    // Old or new, never torn or missing; the version record still says 1.0.0.
    EXPECT_EQ(readFile(installDir() / "VELK.dll"), "library 2.0");
    EXPECT_EQ(readFile(installDir() / "VELK_Service.exe"), "service 1.0");
    EXPECT_TRUE(versionRecorded("1.0.0"));
    // A failed download reports the temporary file it was writing, the URLs tried on the
    // same log line (their line ends shown escaped).
    EXPECT_TRUE(loggedStartingWith("[ERROR] [FAILED] Failed: " + (downloads() / "VELK_Service.exe.tmp").string() +
                                   " - Download failed after attempts (zip then plain per base):\\n"));

    writeFile(rules(), "");
    EXPECT_EQ(run({}).exitCode, 0);
    expectInstalled(kRelease2);
    EXPECT_TRUE(versionRecorded("2.0.0"));
}

}  // namespace
}  // namespace velk::test
