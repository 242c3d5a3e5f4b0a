#include <sys/mount.h>

#include "file_updater_fixture.hpp"

namespace velk::updater {
namespace {

class UpdateFilesTest : public FileUpdaterTest {
protected:
    Manifest manifestOf(const std::vector<ManifestFile>& files) {
        Manifest manifest;
        manifest.version = "2.0.0";
        manifest.files = files;
        return manifest;
    }
    // Puts the installation on a fresh 64 KiB volume, unmounted when the test ends; false
    // where mounting is not allowed.
    bool onSmallVolume() {
        volume_ = dir_ / "small";
        fs::create_directories(volume_);
        if (::mount("tmpfs", volume_.c_str(), "tmpfs", 0, "size=64k") != 0) return false;
        mounted_ = true;
        install_ = volume_ / "install";
        return true;
    }
    void TearDown() override {
        updater_.reset();
        if (mounted_) ::umount(volume_.c_str());
        FileUpdaterTest::TearDown();
    }
    fs::path volume_;
    bool mounted_ = false;
    std::vector<std::string> progressLines;
    ProgressCallback recorder() {
        return [this](const UpdateProgress& p) {
            progressLines.push_back(std::to_string(p.percentComplete) + " " + p.currentOperation + " " + p.currentFile);
        };
    }
};

TEST_F(UpdateFilesTest, CurrentFilesAreSkippedWithoutRequests) {
    test::writeFile(installed("VELK.dll"), "lib");
    test::writeFile(installed("VELK_Launcher.exe"), "launcher");
    ManifestFile upper = entry("VELK_Launcher.exe", "launcher");
    for (auto& c : upper.sha256) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    const auto results = updater().updateFiles(manifestOf({entry("VELK.dll", "lib"), upper}), recorder());
    ASSERT_EQ(results.size(), 2u);
    for (const auto& result : results) {
        EXPECT_TRUE(result.success);
        EXPECT_EQ(result.errorMessage, "Skipped - already current");
    }
    EXPECT_EQ(results[1].filePath, "VELK_Launcher.exe");
    EXPECT_TRUE(server_.requests().empty());
    EXPECT_EQ(progressLines, std::vector<std::string>{"0 Update completed "});
    EXPECT_TRUE(log_.contains("[INFO] Starting file update process for 0 files (2 skipped)"));
    EXPECT_TRUE(log_.contains("[INFO] File update completed: 0 successful, 0 failed"));
}

TEST_F(UpdateFilesTest, WrongInstalledCopiesAreReplaced) {
    test::writeFile(installed("VELK.dll"), "wrong size");
    test::writeFile(installed("VELK.exe"), "same");  // right size, wrong content
    server_.set("/cdn/files/VELK.dll", "lib");
    server_.set("/cdn/files/VELK.exe", "SAME");
    const auto results = updater().updateFiles(manifestOf({entry("VELK.dll", "lib"), entry("VELK.exe", "SAME")}), recorder());
    ASSERT_EQ(results.size(), 2u);
    EXPECT_TRUE(results[0].success && results[1].success);
    EXPECT_EQ(test::readFile(installed("VELK.dll")), "lib");
    EXPECT_EQ(test::readFile(installed("VELK.exe")), "SAME");
    const auto reported = log_.from("[INFO] File size mismatch for VELK.dll: expected 3, actual 10");
    ASSERT_GE(reported.size(), 2u);
    EXPECT_EQ(reported[1], "[INFO] Outdated file will be replaced: " + installed("VELK.dll").string());
    EXPECT_TRUE(log_.contains("[INFO] Outdated file will be replaced: " + installed("VELK.exe").string()));
    EXPECT_EQ(progressLines, (std::vector<std::string>{"0 Downloading VELK.dll VELK.dll", "50 Downloading VELK.exe VELK.exe",
                                                       "100 Update completed VELK.exe"}));
    EXPECT_TRUE(log_.contains("[INFO] File update completed: 2 successful, 0 failed"));
}

TEST_F(UpdateFilesTest, DownloadThatFailsVerificationIsNeverInstalled) {
    server_.set("/cdn/files/VELK.dll", "evil");  // right size, wrong bytes
    const auto results = updater().updateFiles(manifestOf({entry("VELK.dll", "good")}), recorder());
    ASSERT_EQ(results.size(), 1u);
    EXPECT_FALSE(results[0].success);
    EXPECT_EQ(results[0].errorMessage, "File integrity check failed");
    EXPECT_EQ(results[0].filePath, "VELK.dll");
    EXPECT_FALSE(fs::exists(installed("VELK.dll")));
    EXPECT_FALSE(fs::exists(downloads() / "VELK.dll.tmp"));
    EXPECT_TRUE(log_.contains("[ERROR] [FAILED] SHA256 verification FAILED"));
    EXPECT_TRUE(log_.contains("[ERROR] Failed to update file VELK.dll: File integrity check failed"));
    EXPECT_TRUE(log_.contains("[INFO] File update completed: 0 successful, 1 failed"));
}

TEST_F(UpdateFilesTest, VerificationReportsDifferencesAndLengths) {
    test::writeFile(dir_ / "sample", "abc");
    const std::string actual = sha256Hex("abc");
    std::string expected = actual;
    expected[3] = expected[3] == '0' ? '1' : '0';
    EXPECT_FALSE(updater().verifyFileIntegrity((dir_ / "sample").string(), expected));
    EXPECT_TRUE(log_.contains("[ERROR]   Differences: Position 3: expected '" + std::string(1, expected[3]) + "', got '" +
                              std::string(1, actual[3]) + "' "));
    EXPECT_FALSE(updater().verifyFileIntegrity((dir_ / "sample").string(), actual.substr(1)));
    EXPECT_TRUE(log_.contains("[ERROR]   Length mismatch: expected 63 chars, got 64 chars"));
    EXPECT_FALSE(updater().verifyFileIntegrity((dir_ / "absent").string(), actual));
    EXPECT_TRUE(log_.contains("[ERROR] File does not exist for verification: " + (dir_ / "absent").string()));
}

TEST_F(UpdateFilesTest, ShutdownStopsBeforeTheFirstDownload) {
    test::writeFile(installed("VELK.dll"), "lib");
    updater().shutdown();
    const auto results =
        updater().updateFiles(manifestOf({entry("VELK.dll", "lib"), entry("VELK.exe", "exe")}), recorder());
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].errorMessage, "Skipped - already current");
    EXPECT_TRUE(server_.requests().empty());
    EXPECT_TRUE(log_.contains("[INFO] Update cancelled by user"));
    EXPECT_EQ(progressLines, std::vector<std::string>{"0 Update completed "});
}

TEST_F(UpdateFilesTest, NotEnoughSpaceStopsBeforeAnyDownload) {
    if (!onSmallVolume()) GTEST_SKIP() << "cannot mount a small tmpfs here: " << std::strerror(errno);
    const std::uint64_t available = fs::space(volume_).available;
    EXPECT_TRUE(updater().hasEnoughDiskSpace(available));
    EXPECT_FALSE(updater().hasEnoughDiskSpace(available + 1));

    server_.set("/cdn/files/VELK.dll", std::string(100000, 'x'));
    const auto results = updater().updateFiles(manifestOf({entry("VELK.dll", std::string(100000, 'x'))}), recorder());
    ASSERT_EQ(results.size(), 1u);
    EXPECT_FALSE(results[0].success);
    EXPECT_EQ(results[0].errorMessage, "Insufficient disk space");
    EXPECT_EQ(results[0].filePath, "");
    EXPECT_TRUE(server_.requests().empty());
    EXPECT_TRUE(progressLines.empty());
}

// The download folder lies on the installation's volume: the new file (which becomes its
// staging copy) and the archive it may arrive in must both fit there, with the backup of
// the installed copy, which stays.
TEST_F(UpdateFilesTest, DiskSpaceCountsTheArchiveAndTheBackup) {
    if (!onSmallVolume()) GTEST_SKIP() << "cannot mount a small tmpfs here: " << std::strerror(errno);
    updater();
    const std::uint64_t half = fs::space(volume_).available / 2;
    EXPECT_TRUE(updater().hasRoomFor({entry("VELK.dll", std::string(half, 'n'))}));
    EXPECT_FALSE(updater().hasRoomFor({entry("VELK.dll", std::string(half + 1, 'n'))}));

    test::writeFile(installed("VELK.dll"), std::string(4096, 'o'));
    ManifestFile backedUp = entry("VELK.dll", std::string(fs::space(volume_).available / 2, 'n'));
    EXPECT_TRUE(updater().hasRoomFor({backedUp}));
    backedUp.backup = true;
    EXPECT_FALSE(updater().hasRoomFor({backedUp}));
}

TEST_F(UpdateFilesTest, ProgressLinePrintsOneFinishedLine) {
    UpdateProgress progress;
    testing::internal::CaptureStdout();
    for (int percent : {0, 50, 100}) {
        progress.percentComplete = percent;
        progress.currentOperation = percent == 100 ? "Update completed" : "Downloading VELK.dll";
        progress.currentFile = percent == 100 ? "" : "VELK.dll";
        printProgress(progress);
    }
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\r[0%] Downloading VELK.dll: VELK.dll\r[50%] Downloading VELK.dll: VELK.dll\r[100%] Update completed\n");
}

TEST_F(UpdateFilesTest, PurgeRemovesOnlyProductDownloads) {
    for (const char* name : {"VELK.dll.tmp", "VELKfoo.tmp", "other.tmp", "velk.dll.tmp", "VELK.dll.tmp.bak"}) {
        test::writeFile(downloads() / name, "x");
    }
    fs::create_directories(downloads() / "VELK.tmp");
    // A partial waits for the next run only with its record, and for a week at most.
    for (const char* name : {"VELK.dll.tmp.partial", "VELK.dll.tmp.partial.resume", "lonely.tmp.partial",
                             "orphan.tmp.partial.resume", "old.tmp.partial", "old.tmp.partial.resume"}) {
        test::writeFile(downloads() / name, "x");
    }
    for (const char* old : {"old.tmp.partial", "old.tmp.partial.resume"}) {
        fs::last_write_time(downloads() / old, fs::file_time_type::clock::now() - std::chrono::hours(24 * 8));
    }
    EXPECT_TRUE(updater().purgeTempFiles());
    for (const char* kept : {"other.tmp", "velk.dll.tmp", "VELK.dll.tmp.bak", "VELK.tmp", "VELK.dll.tmp.partial",
                             "VELK.dll.tmp.partial.resume"}) {
        EXPECT_TRUE(fs::exists(downloads() / kept)) << kept;
    }
    for (const char* gone : {"lonely.tmp.partial", "orphan.tmp.partial.resume", "old.tmp.partial", "old.tmp.partial.resume"}) {
        EXPECT_FALSE(fs::exists(downloads() / gone)) << gone;
    }
    EXPECT_FALSE(fs::exists(downloads() / "VELK.dll.tmp"));
    EXPECT_EQ(log_.lines().back(), "[INFO] Cleaned up 2 VELK temporary files");
    EXPECT_TRUE(updater().purgeTempFiles());
    EXPECT_EQ(log_.lines().back(), "[DEBUG] No VELK temporary files found");
}

TEST_F(UpdateFilesTest, InitializeCreatesDirectories) {
    install_ = dir_ / "fresh" / "install";
    EXPECT_TRUE(updater().initialize());
    EXPECT_TRUE(fs::is_directory(installed("backup")));
    EXPECT_TRUE(fs::is_directory(downloads()));
    EXPECT_EQ(fs::status(downloads()).permissions() & fs::perms::mask, fs::perms::owner_all);
    EXPECT_TRUE(log_.contains("[WARNING] Install directory does not exist, creating it: " + install_.string()));
}

// A plain file where one of the folders belongs fails the start-up; so does a download
// folder that is a link (it could lead anywhere) or another account's folder.
TEST_F(UpdateFilesTest, InitializeFailsWhenAFolderCannotBeMadeOrIsNotPrivate) {
    const fs::path plain = dir_ / "plain";
    test::writeFile(plain, "x");
    const fs::path blockedBackup = dir_ / "blocked";
    test::writeFile(blockedBackup / "backup", "x");
    const fs::path fileForDownloads = dir_ / "file";
    test::writeFile(fileForDownloads / ".velk_downloads", "x");
    const fs::path linked = dir_ / "linked";
    fs::create_directories(linked);
    fs::create_directories(dir_ / "elsewhere");
    fs::create_directory_symlink(dir_ / "elsewhere", linked / ".velk_downloads");
    const struct {
        fs::path install;
        std::string logged;
    } rows[] = {
        {plain, "[ERROR] Install path exists but is not a directory: " + plain.string()},
        {blockedBackup, "[ERROR] Failed to initialize FileUpdater: "},
        {fileForDownloads, "[ERROR] Failed to prepare the download folder: " + fileForDownloads.string() +
                               "/.velk_downloads is not a folder"},
        {linked, "[ERROR] Failed to prepare the download folder: " + linked.string() + "/.velk_downloads is not a folder"},
    };
    for (const auto& row : rows) {
        FileUpdaterConfig config = config_;
        config.layout = InstallationLayout(row.install.string());
        FileUpdater blocked(config, http_, log_.logger());
        EXPECT_FALSE(blocked.initialize()) << row.logged;
        EXPECT_EQ(log_.lines().back().rfind(row.logged, 0), 0u) << log_.lines().back();
        EXPECT_TRUE(fs::is_regular_file(plain));
    }
    // The folders are made in order, and a failure stops the rest.
    EXPECT_FALSE(fs::exists(blockedBackup / ".velk_downloads"));
}

}  // namespace
}  // namespace velk::updater
