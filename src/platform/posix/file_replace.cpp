#include "platform/file_replace.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

namespace velk::updater::platform {
namespace {

bool syncPath(const std::string& path, int flags) {
    const int fd = ::open(path.c_str(), flags | O_CLOEXEC);
    if (fd < 0) return false;
    const bool synced = ::fsync(fd) == 0;
    return ::close(fd) == 0 && synced;
}

}  // namespace

bool flushFile(const std::string& path) { return syncPath(path, O_RDONLY); }

bool replaceFile(const std::string& source, const std::string& target, std::string& error) {
    if (::rename(source.c_str(), target.c_str()) != 0) {
        error = std::strerror(errno);
        return false;
    }
    // Make the new directory entry durable too; a failure here leaves the rename done.
    const std::string directory = std::filesystem::path(target).parent_path().string();
    syncPath(directory.empty() ? "." : directory, O_RDONLY | O_DIRECTORY);
    return true;
}

}  // namespace velk::updater::platform
