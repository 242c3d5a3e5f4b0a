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
    const std::pair<std::string, bool> rows[] = {
        {"Updater.exe", true},       {"libcurl.dll", true},      {"libsodium.dll", true},
        {"zlib1.dll", true},         {"LIBCURL.DLL", false},     {"VELK_Updater.exe", false},
        {"libcurl.dll.bak", false},  {"VELK.dll", false},        {"", false}};
    ManifestFile file;
    for (const auto& [name, updaterFile] : rows) {
        file.name = name;
        EXPECT_EQ(make().isUpdaterFile(file), updaterFile) << name;
    }
}

// The clean-up takes the updater's own backups at the top by exact name; no folder is no error.
TEST_F(SelfUpdaterTest, OldCopiesOfTheUpdaterGo) {
    SelfUpdater updater = make();
    writeFile(dir_ / "VELK_Updater.exe.old", "older exe");
    EXPECT_FALSE(updater.verifySelfUpdate());
    writeFile(dir_ / "VELK_Updater.exe", "exe");
    EXPECT_TRUE(updater.verifySelfUpdate());
    EXPECT_FALSE(fs::exists(dir_ / "VELK_Updater.exe.old"));
    EXPECT_TRUE(fs::exists(dir_ / "VELK_Updater.exe"));

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
    EXPECT_EQ(log_.lines().back(), "[INFO] Cleaned up 2 old backup files");
    fs::remove_all(dir_.path());
    log_.clear();
    make().cleanupOldBackups();
    EXPECT_EQ(log_.count("[WARNING]"), 0u);
    fs::create_directories(dir_.path());  // for the fixture's clean-up
}

}  // namespace
}  // namespace velk::updater
