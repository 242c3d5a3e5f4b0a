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

}  // namespace velk::updater::platform
