#include "platform/posix/system_root.hpp"

#include <cstdlib>

namespace velk::updater::platform {

std::string systemRoot() {
    const char* root = std::getenv("VELK_SYSTEM_ROOT");
    return root != nullptr && *root != '\0' ? root : "/var/lib/velk";
}

}  // namespace velk::updater::platform
