#include "platform/known_folders.hpp"

#include "platform/posix/system_root.hpp"

namespace velk::updater::platform {

std::optional<std::string> programFilesFolder() { return systemRoot() + "/Program Files"; }

}  // namespace velk::updater::platform
