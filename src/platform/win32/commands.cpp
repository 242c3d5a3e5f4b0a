#include "platform/commands.hpp"

#include <cstdlib>

namespace velk::updater::platform {

int runCommand(const std::string& commandLine) { return std::system(commandLine.c_str()); }

}  // namespace velk::updater::platform
