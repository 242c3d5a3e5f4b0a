#include "platform/instance_lock.hpp"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "platform/posix/system_root.hpp"

namespace velk::updater::platform {
namespace {

namespace fs = std::filesystem;

// Absolute, symbolic links resolved where they exist, no trailing separator.
std::string normalise(const std::string& directory) {
    std::error_code error;
    fs::path path = fs::weakly_canonical(fs::absolute(directory, error), error);
    if (error) path = fs::absolute(directory, error).lexically_normal();
    std::string text = path.string();
    while (text.size() > 1 && text.back() == '/') text.pop_back();
    return text;
}

}  // namespace

// flock on a file under the system root: the lock belongs to the open file, so a second
// open conflicts even in the same process, and the kernel drops it with the last descriptor.
InstanceLock::InstanceLock(const std::string& installDirectory) {
    const fs::path root = systemRoot();
    std::error_code error;
    fs::create_directories(root, error);
    const std::string path = (root / instanceLockFileName(normalise(installDirectory))).string();
    const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0) return;
    if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        status_ = errno == EWOULDBLOCK ? LockStatus::Busy : LockStatus::Failed;
        ::close(fd);
        return;
    }
    handle_ = fd;
    status_ = LockStatus::Acquired;
}

InstanceLock::~InstanceLock() {
    if (handle_ >= 0) ::close(static_cast<int>(handle_));
}

}  // namespace velk::updater::platform
