#include <sys/stat.h>

#include "e2e_fixture.hpp"

namespace velk::test {
namespace {

using UpdateRunTest = EndToEndTest;

// What console and log say about a fresh installation; then runs doing only what the disk needs.
TEST_F(UpdateRunTest, FreshInstallThenNothingToDoThenRepairThenOnlyTheChangedFiles) {
    // A replaced file (written beside it and renamed over it) gets a new identity.
    const auto fileIds = [this] {
        std::map<std::string, ino_t> ids;
        for (const auto& [name, content] : kRelease2) {
            struct stat info{};
            if (::stat((installDir() / name).c_str(), &info) == 0) ids[name] = info.st_ino;
        }
        return ids;
    };
    publish("1.0.0", "100", kRelease1, {"--zip"});
    startServer();
    const ProcessResult first = run({});
    EXPECT_EQ(first.exitCode, 0) << first.err;
    EXPECT_TRUE(printedInOrder(first.out, {"Running with administrator privileges.\n",
                                           "WARNING: VELK installation incomplete or corrupted\n",
                                           "Missing files: VELK_Service.exe, VELK.dll, VELK_Launcher.exe\n",
                                           "WARNING: Could not determine installed VELK version\n",
                                           "\r[0%] Downloading VELK.dll: VELK.dll",
                                           "\r[33%] Downloading VELK_Launcher.exe: VELK_Launcher.exe",
                                           "\r[66%] Downloading VELK_Service.exe: VELK_Service.exe",
                                           "\r[100%] Update completed: VELK_Service.exe\n",
                                           "Update process completed successfully\n"}))
        << first.out;
    const std::string url = "http://127.0.0.1:" + std::to_string(VELK_LOOPBACK_PORT);
    EXPECT_TRUE(printedInOrder(
        logText(), {"[INFO] VELK Update Client starting...\n",
                    "[WARNING] VELK installation check: Missing required VELK files in " + installDir().string() +
                        ": VELK_Service.exe, VELK.dll, VELK_Launcher.exe\n",
                    "[INFO] Manifest URL: " + url + "/update/manifest.json\n",
                    "[INFO] Update type: VERSION UPDATE (0.0.0 -> 1.0.0)\n",
                    "[INFO] Will download 3 files (0 already current, skipped)\n",
                    "[INFO] Executing pre-update sequence...\n", "[INFO] URL: files/VELK.dll\n",
                    "[INFO] Download succeeded from: " + url + "/cdn/files/VELK.dll.zip\n",
                    "[INFO] [OK] SHA256 verification PASSED\n", "[INFO] [OK] Updated: VELK.dll\n",
                    "[INFO] Updated registry with new version: 1.0.0 (build 100)\n",
                    "[INFO] VELK Update Client shutting down\n"}))
        << logText();
    EXPECT_TRUE(logText().ends_with("[INFO] VELK Update Client shutting down\n"));
    expectInstalled(kRelease1);

    // Nothing to do, and a newer release of the same files only moves the version record.
    const auto installed = fileIds();
    const ProcessResult second = run({});
    EXPECT_EQ(second.exitCode, 0);
    EXPECT_TRUE(printedInOrder(second.out, {"VELK installation state: OK\n",
                                            "Installed VELK version: 1.0.0 (build 100)\n"}))
        << second.out;
    publish("1.0.1", "101", kRelease1);
    EXPECT_EQ(run({}).exitCode, 0);
    EXPECT_TRUE(versionRecorded("1.0.1"));
    EXPECT_EQ(fileIds(), installed);

    // A damaged file of the installed release is repaired; an upgrade takes the changed files only.
    writeFile(installDir() / "VELK.dll", "tampered!!!");  // the size of the right one
    ASSERT_EQ(run({}).exitCode, 0);
    expectInstalled(kRelease1);
    publish("2.0.0", "200", kRelease2, {"--zip"});  // archives of the old release must not stay
    const auto beforeUpgrade = fileIds();
    const ProcessResult upgrade = run({"--verbose"});
    EXPECT_EQ(upgrade.exitCode, 0);
    expectInstalled(kRelease2);
    EXPECT_TRUE(versionRecorded("2.0.0"));
    EXPECT_EQ(fileIds().at("VELK_Launcher.exe"), beforeUpgrade.at("VELK_Launcher.exe"));
    EXPECT_NE(fileIds().at("VELK.dll"), beforeUpgrade.at("VELK.dll"));
    EXPECT_NE(upgrade.out.find("[HTTP DEBUG] Status Code: 200"), std::string::npos);
}

// A local manifest asks for no manifest URL; check mode installs too, only its failure ends with 1.
TEST_F(UpdateRunTest, LocalOrChannelManifestAndCheckModeEndsWithOneOnlyOnFailure) {
    publish("1.0.0", "100", kRelease1, {"--channel", "test"});
    startServer();
    const std::string local = (site() / "manifest-test.json").string();
    EXPECT_EQ(run({"--channel", "test", "--manifest", local}).exitCode, 0);
    expectInstalled(kRelease1);
    EXPECT_TRUE(requested("GET /cdn/files/VELK.dll "));
    EXPECT_EQ(requests().find("/update/"), std::string::npos);

    fs::remove_all(installDir());
    const ProcessResult check = run({"--check-only", "--channel", "test"});
    EXPECT_EQ(check.exitCode, 0);
    EXPECT_NE(check.out.find("Update check completed successfully\n"), std::string::npos);
    EXPECT_TRUE(printedInOrder(logText(), {"[INFO] Checking for updates...\n",
                                           "[INFO] Update check completed successfully\n"}));
    expectInstalled(kRelease1);
    const ProcessResult missing = run({"--check-only", "--channel", "nightly"});
    EXPECT_EQ(missing.exitCode, 1);
    EXPECT_NE(missing.out.find("Update check failed\n"), std::string::npos);
    const ProcessResult update = run({"--channel", "nightly"});
    EXPECT_EQ(update.exitCode, 0);
    EXPECT_NE(update.out.find("Update process failed or no updates available\n"), std::string::npos);
}

}  // namespace
}  // namespace velk::test
