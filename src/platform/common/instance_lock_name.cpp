#include <cstdio>

#include "platform/instance_lock.hpp"

namespace velk::updater::platform {

std::string instanceLockFileName(const std::string& normalisedDirectory) {
    // FNV-1a, 64 bits: stable across runs and builds, which std::hash does not promise.
    std::uint64_t hash = 14695981039346656037ull;
    for (const unsigned char c : normalisedDirectory) {
        hash ^= c;
        hash *= 1099511628211ull;
    }
    char name[48];
    std::snprintf(name, sizeof name, "VELK_Updater-%016llx.lock",
                  static_cast<unsigned long long>(hash));
    return name;
}

}  // namespace velk::updater::platform
