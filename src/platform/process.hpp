#pragma once

#include <string>

namespace velk::updater::platform {

// Full path of the running executable, or an empty string when the system cannot say.
std::string executablePath();

}  // namespace velk::updater::platform
