#include "platform/paths.hpp"

#include <algorithm>
#include <cctype>

namespace velk::updater::platform {

char pathSeparator() { return '\\'; }

bool sameFileName(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](unsigned char x, unsigned char y) {
               return std::tolower(x) == std::tolower(y);
           });
}

}  // namespace velk::updater::platform
