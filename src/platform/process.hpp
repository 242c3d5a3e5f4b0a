#pragma once

#include <string>

namespace velk::updater::platform {

// Full path of the running executable, or an empty string when the system cannot say.
std::string executablePath();

// The separator the platform puts between a directory and a name ("\" or "/").
char pathSeparator();

// dir + separator + name, exactly as the program's messages show paths.
std::string joinPath(const std::string& directory, const std::string& name);

}  // namespace velk::updater::platform
