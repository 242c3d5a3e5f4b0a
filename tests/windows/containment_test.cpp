// Containment on Windows: names compare in any letter case, and drive, UNC and device
// forms of a manifest's paths are refused.
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>

#include "manifest/path_rules.hpp"
#include "platform/containment.hpp"
#include "support/test_support.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

TEST(ArbitraryInstallation, FoldersCompareInAnyCaseAndParentsDoNotEscape) {
    const test::TempDir dir;
    const fs::path folder = dir.path() / "VELK";
    fs::create_directories(folder);
    std::string upper = (folder / "sub" / "VELK.dll").string();
    for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    EXPECT_TRUE(platform::isInsideFolder(folder, upper));
    EXPECT_TRUE(platform::isInsideFolder(folder, folder / "VELK.dll"));
    EXPECT_FALSE(platform::isInsideFolder(folder, folder));
    EXPECT_FALSE(platform::isInsideFolder(folder, folder / ".." / "VELK.dll"));
    EXPECT_FALSE(platform::isInsideFolder(folder, dir.path() / "VELKother" / "VELK.dll"));
    EXPECT_FALSE(platform::isInsideFolder(folder, "C:\\Windows\\System32\\drivers\\x.sys"));
}

TEST(ArbitraryInstallation, DriveUncAndDeviceFormsAreRefused) {
    for (const char* target : {"C:\\Windows\\x.dll", "c:x.dll", "\\\\server\\share\\x.dll", "\\x.dll",
                               "drivers\\..\\..\\x.sys", "NUL", "drivers\\COM1.sys", "VELK.dll:stream"}) {
        EXPECT_FALSE(targetPathProblem(target).empty()) << target;
    }
    EXPECT_TRUE(targetPathProblem("drivers\\VELK_Sys.sys").empty());
    EXPECT_FALSE(fileNameProblem("aux.dll").empty());
}

}  // namespace
}  // namespace velk::updater
