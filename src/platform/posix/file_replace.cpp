#include "platform/file_replace.hpp"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>
#include <vector>

#include "platform/posix/copy_fallback.hpp"

namespace velk::updater::platform {
namespace {

bool syncPath(const std::string& path, int flags) {
    const int fd = ::open(path.c_str(), flags | O_CLOEXEC);
    if (fd < 0) return false;
    const bool synced = ::fsync(fd) == 0;
    return ::close(fd) == 0 && synced;
}

// Owns one file descriptor; closed on every path.
class Descriptor {
public:
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() {
        if (fd_ >= 0) ::close(fd_);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }
    // Closes now, so that a failing close (a late write error) is seen.
    bool close() { return ::close(std::exchange(fd_, -1)) == 0; }

private:
    int fd_;
};

bool copyThroughBuffer(int in, int out) {
    std::vector<char> block(1 << 20);
    for (;;) {
        const ssize_t got = ::read(in, block.data(), block.size());
        if (got == 0) return true;
        if (got < 0) {
            if (errno == EINTR) continue;
            return false;
        }
        for (ssize_t done = 0; done < got;) {
            const ssize_t put = ::write(out, block.data() + done, static_cast<std::size_t>(got - done));
            if (put < 0 && errno != EINTR) return false;
            if (put > 0) done += put;
        }
    }
}

// Until the source's end: a file that grows meanwhile is copied as far as it reaches.
bool copyInKernel(int in, int out) {
    constexpr std::size_t kChunk = std::size_t{1} << 30;
    bool copiedAny = false;
    for (;;) {
        const ssize_t copied = ::copy_file_range(in, nullptr, out, nullptr, kChunk, 0);
        if (copied == 0) return true;
        if (copied > 0) {
            copiedAny = true;
            continue;
        }
        if (errno == EINTR) continue;
        if (!copiedAny && copyIsUnsupported(errno)) return copyThroughBuffer(in, out);
        return false;
    }
}

bool systemError(std::error_code& error) {
    error = std::error_code(errno, std::generic_category());
    return false;
}

}  // namespace

bool copyIsUnsupported(int error) {
    return error == EXDEV || error == ENOSYS || error == EINVAL || error == EOPNOTSUPP;
}

bool flushFile(const std::string& path) { return syncPath(path, O_RDONLY); }

ReplaceStatus replaceFile(const std::string& source, const std::string& target, std::string& error) {
    if (::rename(source.c_str(), target.c_str()) != 0) {
        error = std::strerror(errno);
        return isInUse(std::error_code(errno, std::generic_category())) ? ReplaceStatus::InUse : ReplaceStatus::Failed;
    }
    // Make the new directory entry durable too; a failure here leaves the rename done.
    const std::string directory = std::filesystem::path(target).parent_path().string();
    syncPath(directory.empty() ? "." : directory, O_RDONLY | O_DIRECTORY);
    return ReplaceStatus::Replaced;
}

bool isInUse(const std::error_code& error) {
    return error == std::errc::device_or_resource_busy || error == std::errc::text_file_busy;
}

bool copyFileFast(const std::string& source, const std::string& target, std::error_code& error) {
    Descriptor in(::open(source.c_str(), O_RDONLY | O_CLOEXEC));
    struct stat status {};
    if (!in.valid() || ::fstat(in.get(), &status) != 0) return systemError(error);
    if (!S_ISREG(status.st_mode)) {
        error = std::make_error_code(std::errc::not_supported);
        return false;
    }
    Descriptor out(::open(target.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, S_IRUSR | S_IWUSR));
    if (!out.valid()) return systemError(error);
    // The copy takes the source's permissions, whatever the process's umask.
    if (copyInKernel(in.get(), out.get()) && ::fchmod(out.get(), status.st_mode & 07777) == 0 && out.close()) {
        error.clear();
        return true;
    }
    systemError(error);
    ::unlink(target.c_str());
    return false;
}

}  // namespace velk::updater::platform
