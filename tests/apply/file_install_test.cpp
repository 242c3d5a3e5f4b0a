#include <sys/mount.h>

#include <cstring>
#include <thread>

#include "file_updater_fixture.hpp"

namespace velk::updater {
namespace {

class InstallationTest : public FileUpdaterTest {
protected:
    // A downloaded file in the temporary directory, as the download leaves it.
    std::string downloaded(const std::string& name, const std::string& content) {
        const fs::path path = downloads() / (name + ".tmp");
        test::writeFile(path, content);
        return path.string();
    }
    std::vector<fs::path> backups() const {
        std::vector<fs::path> found;
        if (!fs::exists(installed("backup"))) return found;
        for (const auto& item : fs::directory_iterator(installed("backup"))) found.push_back(item.path());
        return found;
    }
};

TEST_F(InstallationTest, NewFileGetsItsFoldersAndTheDownloadIsRemoved) {
    ManifestFile file = entry("VELK_Sys.sys", "driver");
    file.target_path = "drivers/x64/VELK_Sys.sys";
    const std::string source = downloaded("VELK_Sys.sys", "driver");
    FileUpdateResult download;
    download.bytesDownloaded = 6;
    const FileUpdateResult result = updater().installFile(file, source, download);
    ASSERT_TRUE(result.success) << result.errorMessage;
    EXPECT_EQ(result.filePath, "drivers/x64/VELK_Sys.sys");
    EXPECT_EQ(result.bytesDownloaded, 6u);
    EXPECT_EQ(test::readFile(installed("drivers/x64/VELK_Sys.sys")), "driver");
    EXPECT_FALSE(fs::exists(source));
    EXPECT_FALSE(fs::exists(installed("drivers/x64/VELK_Sys.sys.staging")));
    EXPECT_TRUE(backups().empty());
    // Readable by the product's users, not private like the download it was.
    EXPECT_EQ(fs::status(installed("drivers/x64/VELK_Sys.sys")).permissions() & fs::perms::mask,
              fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read | fs::perms::others_read);
}

TEST_F(InstallationTest, BackupIsKeptAndASecondOneInTheSameSecondFails) {
    ManifestFile file = entry("VELK.dll", "new");
    file.backup = true;
    test::writeFile(installed("VELK.dll"), "old");
    // Both installations must fall in one wall-clock second for the names to collide.
    auto intoSecond = [] {
        const auto now = std::chrono::system_clock::now();
        return now - std::chrono::floor<std::chrono::seconds>(now);
    };
    while (intoSecond() > std::chrono::milliseconds(500)) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    ASSERT_TRUE(updater().installFile(file, downloaded("VELK.dll", "new"), {}).success);
    ASSERT_EQ(backups().size(), 1u);
    EXPECT_EQ(test::readFile(backups()[0]), "old");
    EXPECT_EQ(backups()[0].filename().string().rfind("VELK.dll_", 0), 0u);

    test::writeFile(installed("VELK.dll"), "newer still old");
    const FileUpdateResult second_ = updater().installFile(file, downloaded("VELK.dll", "newest"), {});
    if (backups().size() != 1u) GTEST_SKIP() << "the two installations fell into different seconds";
    EXPECT_FALSE(second_.success);
    EXPECT_EQ(second_.errorMessage.rfind("Installation failed: ", 0), 0u) << second_.errorMessage;
    EXPECT_EQ(test::readFile(installed("VELK.dll")), "newer still old");
    EXPECT_TRUE(log_.contains("[ERROR] Installation failed for VELK.dll: " + second_.errorMessage.substr(21)));
}

// Someone removed the backup folder after start-up: it is made again, and the old file
// is kept there before it is replaced.
TEST_F(InstallationTest, BackupFolderRemovedAfterStartUpIsMadeAgain) {
    ManifestFile file = entry("VELK.dll", "new");
    file.backup = true;
    test::writeFile(installed("VELK.dll"), "old");
    updater();
    fs::remove_all(installed("backup"));
    ASSERT_TRUE(updater().installFile(file, downloaded("VELK.dll", "new"), {}).success);
    ASSERT_EQ(backups().size(), 1u);
    EXPECT_EQ(test::readFile(backups()[0]), "old");
    EXPECT_EQ(test::readFile(installed("VELK.dll")), "new");
}

// The old file is replaced without a backup, which the manifest did not ask for.
TEST_F(InstallationTest, LeftoverStagingFileIsReplacedAndNoBackupUnlessAskedFor) {
    test::writeFile(installed("VELK.dll"), "old");
    test::writeFile(installed("VELK.dll.staging"), "half of an old attempt");
    ASSERT_TRUE(updater().installFile(entry("VELK.dll", "new"), downloaded("VELK.dll", "new"), {}).success);
    EXPECT_EQ(test::readFile(installed("VELK.dll")), "new");
    EXPECT_FALSE(fs::exists(installed("VELK.dll.staging")));
    EXPECT_TRUE(log_.contains("[DEBUG] Removing leftover staging file: " + installed("VELK.dll.staging").string()));
    EXPECT_TRUE(backups().empty());
}

TEST_F(InstallationTest, WithoutStagingTheTargetIsOverwrittenAndDownloadsCanStay) {
    config_.useStaging = false;
    config_.deleteTempAfterInstall = false;
    test::writeFile(installed("VELK.dll"), "old");
    const std::string source = downloaded("VELK.dll", "new");
    ASSERT_TRUE(updater().installFile(entry("VELK.dll", "new"), source, {}).success);
    EXPECT_EQ(test::readFile(installed("VELK.dll")), "new");
    EXPECT_TRUE(fs::exists(source));
    EXPECT_FALSE(fs::exists(installed("VELK.dll.staging")));
}

TEST_F(InstallationTest, TargetThatCannotBeReplacedFailsAndStaysOld) {
    test::writeFile(installed("VELK.dll"), "old");
    test::ScopedImmutable locked(installed("VELK.dll"));
    if (!locked.active()) GTEST_SKIP() << "the file system refuses the immutable attribute here";
    const FileUpdateResult result = updater().installFile(entry("VELK.dll", "new"), downloaded("VELK.dll", "new"), {});
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.errorMessage.rfind("Installation failed: ", 0), 0u);
    EXPECT_EQ(test::readFile(installed("VELK.dll")), "old");
}

// Another process holds the installed copy. A file mounted over it makes the rename fail
// with EBUSY here, as a sharing violation does on Windows: released within the window, the
// file is replaced; held past it, the installation fails and the old file stays.
TEST_F(InstallationTest, FileInUse) {
    test::writeFile(installed("VELK.dll"), "old");
    test::writeFile(dir_ / "holder", "held");
    const auto hold = [&] {
        return ::mount((dir_ / "holder").c_str(), installed("VELK.dll").c_str(), nullptr, MS_BIND, nullptr) == 0;
    };
    if (!hold()) GTEST_SKIP() << "cannot mount over a file here: " << std::strerror(errno);
    std::thread releaser([&] {
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
        while (log_.count("[WARNING] File in use, retrying in ") == 0 && std::chrono::steady_clock::now() < giveUp) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        ::umount(installed("VELK.dll").c_str());
    });
    config_.inUseWindow = std::chrono::seconds(20);
    const FileUpdateResult released = updater().installFile(entry("VELK.dll", "new"), downloaded("VELK.dll", "new"), {});
    releaser.join();
    EXPECT_TRUE(released.success) << released.errorMessage;
    EXPECT_EQ(test::readFile(installed("VELK.dll")), "new");

    ASSERT_TRUE(hold());
    config_.inUseWindow = std::chrono::milliseconds(300);
    updater_.reset();
    const FileUpdateResult held = updater().installFile(entry("VELK.dll", "newer"), downloaded("VELK.dll", "newer"), {});
    ::umount(installed("VELK.dll").c_str());
    EXPECT_FALSE(held.success);
    EXPECT_NE(held.errorMessage.find("in use"), std::string::npos) << held.errorMessage;
    EXPECT_EQ(test::readFile(installed("VELK.dll")), "new");
}

}  // namespace
}  // namespace velk::updater
