#include "platform/process.hpp"

#include <windows.h>

namespace velk::updater::platform {

std::string executablePath() {
    char buffer[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameA(nullptr, buffer, MAX_PATH);
    if (length == 0) {
        return {};
    }
    return std::string(buffer, length);
}

}  // namespace velk::updater::platform
