#pragma once

#include <optional>
#include <string>

namespace velk::updater::platform {

// The Program Files folder, or nothing when the system cannot say.
std::optional<std::string> programFilesFolder();

}  // namespace velk::updater::platform
