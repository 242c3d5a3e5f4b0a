#include "platform/paths.hpp"

namespace velk::updater::platform {

char pathSeparator() { return '/'; }

bool sameFileName(const std::string& a, const std::string& b) { return a == b; }

}  // namespace velk::updater::platform
