#include "support/test_support.hpp"

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>

namespace velk::test {

TempDir::TempDir() {
    std::random_device device;
    for (int attempt = 0; attempt < 100; ++attempt) {
        const fs::path candidate =
            fs::temp_directory_path() / ("velk_test_" + std::to_string(device()));
        if (fs::create_directory(candidate)) {
            path_ = candidate;
            return;
        }
    }
    throw std::runtime_error("could not create a temporary directory");
}

TempDir::~TempDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

ScopedEnv::ScopedEnv(const std::string& name, const std::string& value) : name_(name) {
    if (const char* old = std::getenv(name.c_str())) {
        previous_ = old;
    }
    ::setenv(name.c_str(), value.c_str(), 1);
}

ScopedEnv::~ScopedEnv() {
    if (previous_) {
        ::setenv(name_.c_str(), previous_->c_str(), 1);
    } else {
        ::unsetenv(name_.c_str());
    }
}

bool setImmutable(const fs::path& path, bool immutable) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) return false;
    int flags = 0;
    bool ok = ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    if (ok) {
        flags = immutable ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
        ok = ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    }
    ::close(fd);
    return ok;
}

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

void writeFile(const fs::path& path, const std::string& content) {
    if (path.has_parent_path()) {
        fs::create_directories(path.parent_path());
    }
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

void writeRegistry(const fs::path& root, const std::string& body) {
    writeFile(root / "registry.reg", "Windows Registry Editor Version 5.00\n\n" + body);
}

}  // namespace velk::test
