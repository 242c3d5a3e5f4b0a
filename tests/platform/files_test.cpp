#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/containment.hpp"
#include "platform/file_replace.hpp"
#include "platform/instance_lock.hpp"
#include "platform/posix/copy_fallback.hpp"
#include "platform/private_files.hpp"
#include "support/test_support.hpp"

namespace velk::updater::platform {
namespace {

namespace fs = std::filesystem;

fs::perms modeOf(const fs::path& path) { return fs::symlink_status(path).permissions() & fs::perms::mask; }

// The kernel's copy is taken in pieces; every size must arrive whole, the empty file too.
class FastCopy : public ::testing::TestWithParam<std::size_t> {};

TEST_P(FastCopy, CopiesEveryByteAndThePermissions) {
    const test::TempDir dir;
    std::string content(GetParam(), '\0');
    for (std::size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 31 + i / 4096);
    test::writeFile(dir / "source", content);
    fs::permissions(dir / "source", fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read);
    std::error_code error;
    ASSERT_TRUE(copyFileFast((dir / "source").string(), (dir / "target").string(), error)) << error.message();
    EXPECT_EQ(test::readFile(dir / "target"), content);
    EXPECT_EQ(modeOf(dir / "target"), modeOf(dir / "source"));
}

INSTANTIATE_TEST_SUITE_P(Sizes, FastCopy, ::testing::Values(0u, 1u, 4096u, (3u << 20) + 7u));

TEST(FastCopyFailure, MissingSourceOrExistingTargetFailsAndLeavesTheTargetAsItWas) {
    const test::TempDir dir;
    std::error_code error;
    EXPECT_FALSE(copyFileFast((dir / "absent").string(), (dir / "target").string(), error));
    EXPECT_EQ(error, std::errc::no_such_file_or_directory);
    EXPECT_FALSE(fs::exists(dir / "target"));
    test::writeFile(dir / "source", "new");
    test::writeFile(dir / "target", "old");
    EXPECT_FALSE(copyFileFast((dir / "source").string(), (dir / "target").string(), error));
    EXPECT_EQ(error, std::errc::file_exists);
    EXPECT_EQ(test::readFile(dir / "target"), "old");
}

// The buffer is taken only where the kernel refuses the pair itself; any other failure is the copy's.
TEST(FastCopyFailure, BufferIsTakenOnlyForTheKernelsRefusals) {
    for (const int error : {EXDEV, ENOSYS, EINVAL, EOPNOTSUPP}) EXPECT_TRUE(copyIsUnsupported(error)) << std::strerror(error);
    for (const int error : {0, ENOSPC, EIO, EBADF, EFBIG, EPERM, EACCES, EINTR}) {
        EXPECT_FALSE(copyIsUnsupported(error)) << std::strerror(error);
    }
}

// Onto another volume the bytes go through the buffer; a file that fills it leaves nothing behind.
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

// A path that cannot be resolved (a loop of links) is inside nothing and holds nothing.
TEST(ArbitraryInstallation, UnresolvablePathsAreNeverInside) {
    const test::TempDir dir;
    fs::create_directory_symlink(dir / "loop", dir / "loop");
    EXPECT_TRUE(isInsideFolder(dir.path(), dir / "VELK.dll"));
    EXPECT_FALSE(isInsideFolder(dir / "loop", dir / "loop" / "VELK.dll"));
    EXPECT_FALSE(isInsideFolder(dir.path(), dir / "loop" / "VELK.dll"));
}

// An earlier run's folder is closed again; a link or another account's folder is left as it is.
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

class ConcurrentRuns : public test::SystemRootTest {};  // the locks live in the system root

// Two runs raced each other's renames and registry writes; other spellings name the same folder.
TEST_F(ConcurrentRuns, SecondLockOfOneInstallationIsBusyUntilTheFirstIsReleased) {
    const fs::path install = root() / "install";
    fs::create_directories(install / "sub");
    fs::create_directory_symlink(install, root() / "link");
    {
        const InstanceLock first(install.string());
        ASSERT_EQ(first.status(), LockStatus::Acquired);
        for (const fs::path& same : {install, fs::path(install.string() + "/"), install / "sub" / "..", root() / "link"}) {
            EXPECT_EQ(InstanceLock(same.string()).status(), LockStatus::Busy) << same;
        }
        EXPECT_EQ(InstanceLock((root() / "other").string()).status(), LockStatus::Acquired);
    }
    EXPECT_EQ(InstanceLock(install.string()).status(), LockStatus::Acquired);
}

// A child's lock (the elevated run) dies with it, also unreleased; a live holder: the end-to-end guard test.
TEST_F(ConcurrentRuns, LockOfAProcessThatDiedIsFreeAgain) {
    const pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        const InstanceLock held(root().string());
        ::_exit(held.status() == LockStatus::Acquired ? 0 : 1);  // no destructor runs: never released
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(InstanceLock(root().string()).status(), LockStatus::Acquired);
}

}  // namespace
}  // namespace velk::updater::platform
