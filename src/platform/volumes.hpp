#pragma once

#include <string>

namespace velk::updater::platform {

// Whether two existing paths lie on one volume, so that their free space is shared. False
// when either cannot be examined.
bool sameVolume(const std::string& a, const std::string& b);

}  // namespace velk::updater::platform
