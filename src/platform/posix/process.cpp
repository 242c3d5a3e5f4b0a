#include "platform/process.hpp"

#include <unistd.h>

#include <array>

namespace velk::updater::platform {

std::string executablePath() {
    std::array<char, 4096> buffer{};
    const ssize_t length = ::readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
    if (length <= 0) {
        return {};
    }
    return std::string(buffer.data(), static_cast<std::size_t>(length));
}

char pathSeparator() { return '/'; }

bool sameFileName(const std::string& a, const std::string& b) { return a == b; }

std::string joinPath(const std::string& directory, const std::string& name) {
    return directory + pathSeparator() + name;
}

}  // namespace velk::updater::platform
