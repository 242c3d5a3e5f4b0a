#include "installation/layout.hpp"

#include <gtest/gtest.h>

#include <ctime>

namespace velk::updater {
namespace {

// The names other programs and later runs rely on: the windowed updater swaps in "_temp"
// files, the sweeps find ".staging" and ".tmp" leftovers, the backups sort by their stamp.
TEST(InstallationLayout, EveryPathOfTheInstallationIsFormedFromItsFolder) {
    const InstallationLayout layout("/opt/VELK");
    EXPECT_EQ(layout.backupDirectory(), "/opt/VELK/backup");
    EXPECT_EQ(layout.logFile(), "/opt/VELK/logs/updater.log");
    EXPECT_EQ(layout.writeTestFile(), "/opt/VELK/velk_updater_write_test.tmp");
    EXPECT_EQ(layout.productFile("VELK_Sys.inf"), "/opt/VELK/VELK_Sys.inf");
    EXPECT_EQ(layout.targetFile("drivers/VELK_Sys.sys"), "/opt/VELK/drivers/VELK_Sys.sys");
    EXPECT_EQ(InstallationLayout::stagingFile(layout.targetFile("VELK.dll")), "/opt/VELK/VELK.dll.staging");
    EXPECT_EQ(layout.downloadFile("VELK.dll"), "/opt/VELK/.velk_downloads/VELK.dll.tmp");
    EXPECT_EQ(InstallationLayout::archiveFile(layout.downloadFile("VELK.dll")), "/opt/VELK/.velk_downloads/VELK.dll.tmp.zip");
    EXPECT_EQ(layout.selfUpdateFile("libcurl.dll"), "/opt/VELK/libcurl.dll_temp");
    EXPECT_EQ(InstallationLayout::partialFile(layout.selfUpdateFile("zlib1.dll")), "/opt/VELK/zlib1.dll_temp.partial");

    std::tm local{};
    local.tm_year = 2025 - 1900;
    local.tm_mon = 2;
    local.tm_mday = 5;
    local.tm_hour = 14;
    local.tm_min = 3;
    local.tm_sec = 7;
    local.tm_isdst = -1;
    const auto when = std::chrono::system_clock::from_time_t(std::mktime(&local)) + std::chrono::milliseconds(999);
    EXPECT_EQ(layout.backupFile("VELK.dll", when), "/opt/VELK/backup/VELK.dll_20250305_140307.bak");
}

}  // namespace
}  // namespace velk::updater
