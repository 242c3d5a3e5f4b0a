#include <sys/mount.h>

#include <cstring>
#include <thread>

#include "client_fixture.hpp"

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

// The new file is readable by the product's users (its download is private); a backup only when
// asked for; the old file untouched when the target cannot be replaced.
TEST_F(InstallationTest, EachSituationGivesItsOutcome) {
    // "removed": the backup folder went after start-up; "leftover": an earlier staging copy is
    // there; "direct": no staging copy, the download kept; "locked": the target cannot be replaced.
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"drivers/x64/VELK_Sys.sys", ""}, {"VELK.dll", "old backup"}, {"VELK.dll", "old backup removed"},
        {"VELK.dll", "old leftover"},     {"VELK.dll", "old direct"},  {"VELK.dll", "old locked"}};
    for (const auto& [target, before] : rows) {
        SCOPED_TRACE(target + ": " + before);
        const auto has = [&](const std::string& word) { return (" " + before + " ").find(" " + word + " ") != std::string::npos; };
        fs::remove_all(install_);
        config_.useStaging = config_.deleteTempAfterInstall = !has("direct");
        updater_.reset();
        updater();
        if (has("removed")) fs::remove_all(installed("backup"));
        if (has("old")) test::writeFile(installed(target), "old");
        if (has("leftover")) test::writeFile(installed(target + ".staging"), "half of an old attempt");
        std::optional<test::ScopedImmutable> locked;
        if (has("locked") && !locked.emplace(installed(target)).active()) {
            GTEST_SKIP() << "the file system refuses the immutable attribute here";
        }
        ManifestFile file = entry(fs::path(target).filename().string(), "new");
        file.target_path = target;
        file.backup = has("backup");
        const std::string source = downloaded(file.name, "new");
        FileUpdateResult download;
        download.bytesDownloaded = 3;
        const FileUpdateResult result = updater().installFile(file, source, download);
        locked.reset();
        EXPECT_EQ(result.success, !has("locked")) << result.errorMessage;
        EXPECT_EQ(result.filePath, target);
        EXPECT_EQ(test::readFile(installed(target)), has("locked") ? "old" : "new");
        EXPECT_EQ(fs::exists(source), has("direct"));
        std::vector<std::string> kept;
        for (const auto& backup : backups()) kept.push_back(test::readFile(backup));
        EXPECT_EQ(kept, std::vector<std::string>(has("backup") ? 1 : 0, "old"));
        if (has("locked")) {
            EXPECT_EQ(result.errorMessage.rfind("Installation failed: ", 0), 0u) << result.errorMessage;
        } else {  // a failed replacement leaves its staging copy to the run's final clean-up
            EXPECT_FALSE(fs::exists(installed(target + ".staging")));
            EXPECT_EQ(result.bytesDownloaded, 3u);
            EXPECT_EQ(fs::status(installed(target)).permissions() & fs::perms::mask,
                      fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read | fs::perms::others_read);
        }
    }
}

// It would take the first backup's name: it fails instead, and the installed file stays.
TEST_F(InstallationTest, SecondBackupInTheSameSecondFails) {
    ManifestFile file = entry("VELK.dll", "new");
    file.backup = true;
    test::writeFile(installed("VELK.dll"), "old");
    // Both installations must fall in one wall-clock second for the names to collide.
    while (std::chrono::system_clock::now().time_since_epoch() % std::chrono::seconds(1) >
           std::chrono::milliseconds(500)) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ASSERT_TRUE(updater().installFile(file, downloaded("VELK.dll", "new"), {}).success);
    ASSERT_EQ(backups().size(), 1u);
    EXPECT_EQ(backups()[0].filename().string().rfind("VELK.dll_", 0), 0u);
    test::writeFile(installed("VELK.dll"), "newer still old");
    const FileUpdateResult second = updater().installFile(file, downloaded("VELK.dll", "newest"), {});
    if (backups().size() != 1u) GTEST_SKIP() << "the two installations fell into different seconds";
    EXPECT_FALSE(second.success);
    EXPECT_EQ(second.errorMessage.rfind("Installation failed: ", 0), 0u) << second.errorMessage;
    EXPECT_EQ(test::readFile(installed("VELK.dll")), "newer still old");
    EXPECT_EQ(test::readFile(backups()[0]), "old");
}

// A file mounted over the installed copy makes the rename fail with EBUSY, as a sharing
// violation does on Windows: released within the window it is replaced, else the old stays.
TEST_F(InstallationTest, FileInUse) {
    test::writeFile(installed("VELK.dll"), "old");
    test::writeFile(root() / "holder", "held");
    const auto hold = [&] {
        return ::mount((root() / "holder").c_str(), installed("VELK.dll").c_str(), nullptr, MS_BIND, nullptr) == 0;
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
