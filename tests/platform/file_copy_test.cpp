#include <gtest/gtest.h>

#include <string>

#include "platform/file_replace.hpp"
#include "support/test_support.hpp"

namespace velk::updater::platform {
namespace {

namespace fs = std::filesystem;

// The kernel's copy is taken in pieces; every size must arrive whole, the empty file too.
class FastCopy : public ::testing::TestWithParam<std::size_t> {
protected:
    test::TempDir dir_;
};

TEST_P(FastCopy, CopiesEveryByteAndThePermissions) {
    std::string content(GetParam(), '\0');
    for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 31 + i / 4096);
    const fs::path source = dir_.path() / "source.dll";
    const fs::path target = dir_.path() / "target.dll.staging";
    test::writeFile(source, content);
    fs::permissions(source, fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    std::error_code error;
    ASSERT_TRUE(copyFileFast(source.string(), target.string(), error)) << error.message();
    EXPECT_EQ(test::readFile(target), content);
    EXPECT_EQ(fs::status(target).permissions(), fs::status(source).permissions());
}

INSTANTIATE_TEST_SUITE_P(Sizes, FastCopy, ::testing::Values(0u, 1u, 4096u, (3u << 20) + 7u));

// A missing source leaves no target behind; an existing target is never overwritten.
TEST(FastCopyFailure, MissingSourceOrExistingTargetFailsAndLeavesTheTargetAsItWas) {
    test::TempDir dir;
    const fs::path target = dir.path() / "target";
    std::error_code error;
    EXPECT_FALSE(copyFileFast((dir.path() / "absent").string(), target.string(), error));
    EXPECT_EQ(error, std::errc::no_such_file_or_directory);
    EXPECT_FALSE(fs::exists(target));

    test::writeFile(dir.path() / "source", "new");
    test::writeFile(target, "old");
    EXPECT_FALSE(copyFileFast((dir.path() / "source").string(), target.string(), error));
    EXPECT_EQ(error, std::errc::file_exists);
    EXPECT_EQ(test::readFile(target), "old");
}

}  // namespace
}  // namespace velk::updater::platform
