#pragma once

#include <string>

// Paths as the system spells and compares them.
namespace velk::updater::platform {

// The separator the platform puts between a directory and a name ("\" or "/").
char pathSeparator();

// Whether two names of one folder name the same file: exactly here, in any letter case on
// Windows (ASCII letters only, as the file system folds them for these names).
bool sameFileName(const std::string& a, const std::string& b);

// dir + separator + name, exactly as the program's messages show paths.
std::string joinPath(const std::string& directory, const std::string& name);

}  // namespace velk::updater::platform
