#include "platform/paths.hpp"

namespace velk::updater::platform {

std::string joinPath(const std::string& directory, const std::string& name) {
    return directory + pathSeparator() + name;
}

}  // namespace velk::updater::platform
