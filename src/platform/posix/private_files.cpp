#include "platform/private_files.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace velk::updater::platform {
namespace {

bool failWith(std::string& error, const std::string& text) {
    error = text;
    return false;
}

bool systemFailure(std::string& error, const std::string& what) {
    return failWith(error, what + ": " + std::strerror(errno));
}

}  // namespace

bool preparePrivateFolder(const std::string& path, std::string& error) {
    if (::mkdir(path.c_str(), S_IRWXU) != 0 && errno != EEXIST) return systemFailure(error, "cannot create " + path);
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) return systemFailure(error, "cannot examine " + path);
    if (!S_ISDIR(status.st_mode)) return failWith(error, path + " is not a folder");
    if (status.st_uid != ::geteuid()) return failWith(error, path + " belongs to another account");
    if ((status.st_mode & 07777) != S_IRWXU && ::chmod(path.c_str(), S_IRWXU) != 0) {
        return systemFailure(error, "cannot close " + path);
    }
    return true;
}

bool adoptFolderAccess(const std::string& path, const std::string& replaced, std::string& error) {
    struct stat status {};
    const mode_t mode = ::stat(replaced.c_str(), &status) == 0 ? (status.st_mode & 07777) : 0644;
    if (::chmod(path.c_str(), mode) != 0) return systemFailure(error, "cannot set the access of " + path);
    return true;
}

struct OutputFile::Impl {
    int fd = -1;
};

OutputFile::OutputFile() : impl_(std::make_unique<Impl>()) {}

OutputFile::~OutputFile() {
    if (impl_->fd >= 0) ::close(impl_->fd);
}

bool OutputFile::open(const std::string& path, Mode mode, std::string& error) {
    const int flags = O_WRONLY | O_NOFOLLOW | O_CLOEXEC | (mode == Mode::CreateNew ? O_CREAT | O_EXCL : O_APPEND);
    const int fd = ::open(path.c_str(), flags, S_IRUSR | S_IWUSR);
    if (fd < 0) return systemFailure(error, "cannot open " + path);
    impl_->fd = fd;
    struct stat status {};
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) return failWith(error, path + " is not a file");
    return true;
}

bool OutputFile::write(const void* data, std::size_t size) {
    const char* next = static_cast<const char*>(data);
    while (size > 0) {
        const ssize_t put = ::write(impl_->fd, next, size);
        if (put < 0 && errno == EINTR) continue;
        if (put <= 0) return false;
        next += put;
        size -= static_cast<std::size_t>(put);
    }
    return true;
}

bool OutputFile::truncate() { return ::ftruncate(impl_->fd, 0) == 0 && ::lseek(impl_->fd, 0, SEEK_SET) == 0; }

bool OutputFile::close() { return impl_->fd < 0 || ::close(std::exchange(impl_->fd, -1)) == 0; }

}  // namespace velk::updater::platform
