#include "platform/volumes.hpp"

#include <sys/stat.h>

namespace velk::updater::platform {

bool sameVolume(const std::string& a, const std::string& b) {
    struct stat first {};
    struct stat second {};
    return ::stat(a.c_str(), &first) == 0 && ::stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev;
}

}  // namespace velk::updater::platform
