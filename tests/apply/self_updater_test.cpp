#include "apply/self_updater.hpp"

#include <gtest/gtest.h>

#include "support/log_capture.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;
using test::writeFile;

class SelfUpdaterTest : public ::testing::Test {
protected:
    SelfUpdater make() {
        SelfUpdaterConfig config;
        config.installDirectory = dir_.str();
        config.currentExecutable = (dir_ / "VELK_Updater.exe").string();
        return SelfUpdater(config, log_.logger());
    }
    test::TempDir dir_;
    test::LogCapture log_;
};

TEST_F(SelfUpdaterTest, RecognisesUpdaterFilesByExactName) {
    SelfUpdater updater = make();
    auto named = [](const std::string& name) {
        ManifestFile file;
        file.name = name;
        return file;
    };
    for (const char* name : {"Updater.exe", "libcurl.dll", "libsodium.dll", "zlib1.dll"}) {
        EXPECT_TRUE(updater.isUpdaterFile(named(name))) << name;
    }
    for (const char* name : {"LIBCURL.DLL", "VELK_Updater.exe", "libcurl.dll.bak", "VELK.dll", ""}) {
        EXPECT_FALSE(updater.isUpdaterFile(named(name))) << name;
    }
}

TEST_F(SelfUpdaterTest, VerifyRemovesTheOldCopyOfTheRunningExecutable) {
    SelfUpdater updater = make();
    EXPECT_FALSE(updater.verifySelfUpdate());
    EXPECT_EQ(log_.lines().back(), "[ERROR] Current exe not found: " + (dir_ / "VELK_Updater.exe").string());

    writeFile(dir_ / "VELK_Updater.exe", "exe");
    writeFile(dir_ / "VELK_Updater.exe.old", "older exe");
    log_.clear();
    EXPECT_TRUE(updater.verifySelfUpdate());
    EXPECT_FALSE(fs::exists(dir_ / "VELK_Updater.exe.old"));
    EXPECT_TRUE(fs::exists(dir_ / "VELK_Updater.exe"));
    EXPECT_EQ(log_.lines(), (std::vector<std::string>{
                                "[INFO] Verifying self-update...",
                                "[WARNING] Old backup still exists: " + (dir_ / "VELK_Updater.exe.old").string(),
                                "[INFO] Cleaned up old backup",
                                "[INFO] Self-update verification successful",
                            }));
}

TEST_F(SelfUpdaterTest, CleanupRemovesOnlyUpdaterBackupsAtTheTop) {
    for (const char* name : {"VELK_Updater.exe.old", "Updater.exe.bak", "VELK.dll.bak", "updater.exe.old",
                             "Updater.exe", "backup/Updater.exe.bak"}) {
        writeFile(dir_ / name, "x");
    }
    fs::create_directories(dir_ / "Updater.old");
    make().cleanupOldBackups();
    for (const char* kept : {"VELK.dll.bak", "updater.exe.old", "Updater.exe", "backup/Updater.exe.bak", "Updater.old"}) {
        EXPECT_TRUE(fs::exists(dir_ / kept)) << kept;
    }
    EXPECT_FALSE(fs::exists(dir_ / "VELK_Updater.exe.old"));
    EXPECT_FALSE(fs::exists(dir_ / "Updater.exe.bak"));
    const auto lines = log_.lines();
    EXPECT_EQ(lines.front(), "[INFO] Cleaning up old updater backups...");
    EXPECT_EQ(lines.back(), "[INFO] Cleaned up 2 old backup files");
    EXPECT_EQ(lines.size(), 4u);
}

TEST_F(SelfUpdaterTest, CleanupOfAnEmptyOrMissingDirectory) {
    make().cleanupOldBackups();
    EXPECT_EQ(log_.lines().back(), "[DEBUG] No old backup files found");
    fs::remove_all(dir_.path());
    log_.clear();
    make().cleanupOldBackups();
    EXPECT_EQ(log_.lines(), (std::vector<std::string>{"[INFO] Cleaning up old updater backups..."}));
    fs::create_directories(dir_.path());  // for the fixture's clean-up
}

}  // namespace
}  // namespace velk::updater
