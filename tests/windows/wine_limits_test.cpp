// Zip extraction goes through the shell's zip folders, which Wine does not have. Under
// Wine the test skips with the reason, so it is never counted as a pass; on Windows it
// checks the real thing.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/zip_extract.hpp"
#include "support/test_support.hpp"
#include "windows/windows_support.hpp"

namespace velk::updater::platform {
namespace {

TEST(WineLimitsTest, ZipExtractionThroughShellFolders) {
    if (test::runningUnderWine()) {
        GTEST_SKIP() << "Wine has no zip folders: Shell.Application's NameSpace on a .zip returns S_FALSE";
    }
    const test::TempDir dir;
    test::writeFile(dir / "in" / "VELK.dll", "library bytes");
    // tar.exe ships with Windows 10 and later and writes zip archives with -a.
    ASSERT_EQ(test::captureCommand("tar -a -cf \"" + (dir / "VELK.zip").string() + "\" -C \"" +
                                   (dir / "in").string() + "\" VELK.dll")
                  .exitCode,
              0);
    const std::string out = (dir / "VELK.dll.tmp").string();
    ASSERT_EQ(extractZipEntry((dir / "VELK.zip").string(), "VELK.dll", out, 13), ZipEntryStatus::Extracted);
    EXPECT_EQ(test::readFile(out), "library bytes");
    EXPECT_EQ(extractZipEntry((dir / "VELK.zip").string(), "VELK.dll", out, 12), ZipEntryStatus::TooLarge);
    EXPECT_FALSE(std::filesystem::exists(out));
}

}  // namespace
}  // namespace velk::updater::platform
