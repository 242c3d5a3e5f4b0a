#pragma once

#include <string>

namespace velk::updater::platform {

// Runs a command line through the system's command processor and returns its exit status.
int runCommand(const std::string& commandLine);

}  // namespace velk::updater::platform
