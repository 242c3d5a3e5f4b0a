#include "platform/memory_block.hpp"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace velk::updater::platform {

bool MemoryBlock::allocate(std::size_t size) {
    release();
    if (size == 0) return true;
    // All pages at once instead of a fault each.
    void* memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
    if (memory == MAP_FAILED) return false;
    data_ = static_cast<char*>(memory);
    size_ = size;
    return true;
}

void MemoryBlock::release() {
    if (data_ != nullptr) munmap(data_, size_);
    data_ = nullptr;
    size_ = 0;
}

bool MappedFile::open(const std::string& path, std::string& error) {
    close();
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0) {
        error = "Cannot open " + path + ": " + std::strerror(errno);
        return false;
    }
    struct stat status {};
    bool viewed = fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
    if (!viewed) error = path + " is not a regular file";
    if (viewed && status.st_size > 0) {
        const auto size = static_cast<std::size_t>(status.st_size);
        void* view = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, descriptor, 0);
        viewed = view != MAP_FAILED;
        if (!viewed) error = "Cannot map " + path + ": " + std::strerror(errno);
        if (viewed) {
            data_ = static_cast<const char*>(view);
            size_ = size;
        }
    }
    ::close(descriptor);  // the view keeps the file
    return viewed;
}

void MappedFile::close() {
    if (data_ != nullptr) munmap(const_cast<char*>(data_), size_);
    data_ = nullptr;
    size_ = 0;
}

}  // namespace velk::updater::platform
