#include "platform/process.hpp"

#include <windows.h>

#include <algorithm>
#include <cctype>

namespace velk::updater::platform {

std::string executablePath() {
    char buffer[MAX_PATH] = {};
    const DWORD length = GetModuleFileNameA(nullptr, buffer, MAX_PATH);
    if (length == 0) {
        return {};
    }
    return std::string(buffer, length);
}

char pathSeparator() { return '\\'; }

bool sameFileName(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](unsigned char x, unsigned char y) {
               return std::tolower(x) == std::tolower(y);
           });
}

std::string joinPath(const std::string& directory, const std::string& name) {
    return directory + pathSeparator() + name;
}

}  // namespace velk::updater::platform
