#include <gtest/gtest.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/file_replace.hpp"
#include "platform/posix/copy_fallback.hpp"
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

// The kernel's copy is left for the buffer only where the kernel refuses the pair itself;
// any other failure is the copy's.
TEST(FastCopyFailure, BufferIsTakenOnlyForTheKernelsRefusals) {
    for (const int error : {EXDEV, ENOSYS, EINVAL, EOPNOTSUPP}) EXPECT_TRUE(copyIsUnsupported(error)) << std::strerror(error);
    for (const int error : {0, ENOSPC, EIO, EBADF, EFBIG, EPERM, EACCES, EINTR}) {
        EXPECT_FALSE(copyIsUnsupported(error)) << std::strerror(error);
    }
}

// Onto another volume the bytes go through the buffer: a file that fits arrives whole, one
// that fills the volume fails with the system's error and leaves nothing behind.
TEST(FastCopyFailure, AcrossVolumesAFullVolumeIsReported) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to mount a small tmpfs as the other volume";
    const test::TempDir dir;
    const fs::path volume = dir / "volume";
    fs::create_directory(volume);
    if (::mount("tmpfs", volume.c_str(), "tmpfs", 0, "size=64k") != 0) GTEST_SKIP() << "no tmpfs: " << std::strerror(errno);
    const std::unique_ptr<const char, void (*)(const char*)> unmount(volume.c_str(), [](const char* path) { ::umount2(path, MNT_DETACH); });
    test::writeFile(dir / "small", "fits");
    test::writeFile(dir / "large", std::string(1 << 20, 'x'));
    std::error_code error;
    ASSERT_TRUE(copyFileFast((dir / "small").string(), (volume / "small").string(), error)) << error.message();
    EXPECT_EQ(test::readFile(volume / "small"), "fits");
    EXPECT_FALSE(copyFileFast((dir / "large").string(), (volume / "large").string(), error));
    EXPECT_EQ(error, std::errc::no_space_on_device);
    EXPECT_FALSE(fs::exists(volume / "large"));
}

}  // namespace
}  // namespace velk::updater::platform
