#pragma once

#include <optional>
#include <string>
#include <vector>

namespace velk::updater {

// Outcome of the installation, service and version checks.
struct ValidationResult {
    bool valid = false;
    std::string message;
    std::vector<std::string> missingItems;
};

// The product's registry key below HKEY_LOCAL_MACHINE.
inline constexpr const char* kProductRegistryKey = "SOFTWARE\\Quenmark\\VELK";

// The installed version ("Version", else "VELKInstalled"), or empty.
std::string getInstalledVersion();
// The installed build number, or empty.
std::string getInstalledBuildNumber();
// Writes the non-empty arguments; true when the "Version" and "BuildNumber" writes that
// were attempted succeeded. Never creates the key.
bool setInstalledVersion(const std::string& version, const std::string& buildNumber);

// -1, 0 or 1 for a against b: dot-separated components as 32-bit numbers (anything
// unreadable is 0), at least three each. Every version gate orders versions this way.
int compareVersionComponents(const std::string& a, const std::string& b);

// Whether moving from the installed version to `targetVersion` is allowed.
ValidationResult validateVersion(const std::string& targetVersion, bool allowDowngrades);

// Empty when the product record can be read, also when it is absent (not installed);
// otherwise why the registry itself cannot be read.
std::optional<std::string> productRecordError();

// Reads a string value of the product key: size query, then data query, trailing NULs
// removed. Empty when either query fails.
std::string readProductString(const std::string& name);

}  // namespace velk::updater
