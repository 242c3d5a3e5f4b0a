#pragma once

#include <string>

namespace velk::updater::platform {

// The directory that holds the emulated machine state: VELK_SYSTEM_ROOT, or /var/lib/velk.
std::string systemRoot();

}  // namespace velk::updater::platform
