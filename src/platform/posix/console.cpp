#include "platform/console.hpp"

namespace velk::updater::platform {

// A POSIX terminal already speaks UTF-8 and interprets colour sequences.
void setupConsole() {}

}  // namespace velk::updater::platform
