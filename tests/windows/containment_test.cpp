// Containment on Windows: folder names compare in any letter case, and nothing outside
// the folder (its parent, a sibling with the same prefix, another drive) is inside it.
#include <gtest/gtest.h>

#include <cctype>
#include <filesystem>

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
    const struct {
        fs::path path;
        bool inside;
    } rows[] = {
        {upper, true},         {folder / "VELK.dll", true},
        {folder, false},       {folder / ".." / "VELK.dll", false},
        {dir.path() / "VELKother" / "VELK.dll", false},
        {"C:\\Windows\\System32\\drivers\\x.sys", false},
    };
    for (const auto& row : rows) EXPECT_EQ(platform::isInsideFolder(folder, row.path), row.inside) << row.path;
}

}  // namespace
}  // namespace velk::updater
