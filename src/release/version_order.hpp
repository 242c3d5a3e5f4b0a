#pragma once

#include <string>

// The one order of versions and build numbers: every gate and every report compares
// through these.
namespace velk::updater {

// -1, 0 or 1 for a against b: dot-separated components as 32-bit numbers (anything
// unreadable is 0), at least three each, so 10.0.0 is newer than 9.0.0.
int compareVersionComponents(const std::string& a, const std::string& b);

// -1, 0 or 1 for a against b read as 64-bit numbers (empty or unreadable is 0).
int compareBuildNumbers(const std::string& a, const std::string& b);

}  // namespace velk::updater
