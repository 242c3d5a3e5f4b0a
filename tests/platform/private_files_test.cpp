// The download folder and its files: nothing another account made or linked is used.
#include "platform/private_files.hpp"

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/test_support.hpp"

namespace velk::updater::platform {
namespace {

namespace fs = std::filesystem;

fs::perms modeOf(const fs::path& path) { return fs::symlink_status(path).permissions() & fs::perms::mask; }

// Created closed; an earlier run's folder is closed again; a link or another account's
// folder in its place is refused and left as it is.
TEST(PrivateFolder, ClosedToEveryoneElse) {
    const test::TempDir dir;
    const fs::path folder = dir / "downloads";
    std::string error;
    ASSERT_TRUE(preparePrivateFolder(folder.string(), error)) << error;
    EXPECT_EQ(modeOf(folder), fs::perms::owner_all);
    fs::permissions(folder, fs::perms::all);
    ASSERT_TRUE(preparePrivateFolder(folder.string(), error)) << error;
    EXPECT_EQ(modeOf(folder), fs::perms::owner_all);

    fs::create_directories(dir / "elsewhere");
    fs::permissions(dir / "elsewhere", fs::perms::all);
    fs::create_directory_symlink(dir / "elsewhere", dir / "linked");
    EXPECT_FALSE(preparePrivateFolder((dir / "linked").string(), error));
    EXPECT_EQ(error, (dir / "linked").string() + " is not a folder");
    EXPECT_EQ(modeOf(dir / "elsewhere"), fs::perms::all);

    if (::geteuid() != 0) GTEST_SKIP() << "only root can hand a folder to another account";
    fs::create_directories(dir / "foreign");
    ASSERT_EQ(::chown((dir / "foreign").c_str(), 65534, 65534), 0);
    EXPECT_FALSE(preparePrivateFolder((dir / "foreign").string(), error));
    EXPECT_EQ(error, (dir / "foreign").string() + " belongs to another account");
}

// A new file is created only where nothing lies, and no file is opened through a link.
TEST(PrivateFolder, FilesAreNeverOpenedThroughALink) {
    const test::TempDir dir;
    test::writeFile(dir / "victim", "precious");
    fs::create_symlink(dir / "victim", dir / "link");
    fs::create_symlink(dir / "absent", dir / "dangling");
    std::string error;
    for (const char* name : {"victim", "link", "dangling"}) {
        OutputFile file;
        EXPECT_FALSE(file.open((dir / name).string(), OutputFile::Mode::CreateNew, error)) << name;
    }
    OutputFile continued;
    EXPECT_FALSE(continued.open((dir / "link").string(), OutputFile::Mode::Continue, error));
    EXPECT_EQ(test::readFile(dir / "victim"), "precious");
    EXPECT_FALSE(fs::exists(dir / "absent"));

    OutputFile made;
    ASSERT_TRUE(made.open((dir / "new").string(), OutputFile::Mode::CreateNew, error)) << error;
    EXPECT_EQ(modeOf(dir / "new"), fs::perms::owner_read | fs::perms::owner_write);
    ASSERT_TRUE(made.write("abc", 3) && made.truncate() && made.write("de", 2) && made.close());
    OutputFile more;
    ASSERT_TRUE(more.open((dir / "new").string(), OutputFile::Mode::Continue, error)) << error;
    ASSERT_TRUE(more.write("f", 1) && more.close());
    EXPECT_EQ(test::readFile(dir / "new"), "def");
}

}  // namespace
}  // namespace velk::updater::platform
