#pragma once

#include <cstdint>
#include <optional>
#include <string>

// The product's record in the registry: where it is installed and which version.
namespace velk::updater {

// The product's registry key below HKEY_LOCAL_MACHINE.
inline constexpr const char* kProductRegistryKey = "SOFTWARE\\Quenmark\\VELK";

// The installed version ("Version", else "VELKInstalled"), or empty.
std::string getInstalledVersion();
// The installed build number, or empty.
std::string getInstalledBuildNumber();
// Writes the non-empty arguments; true when the "Version" and "BuildNumber" writes that
// were attempted succeeded. Never creates the key.
bool setInstalledVersion(const std::string& version, const std::string& buildNumber);

// The rollout cohort kept in the record ("RolloutCohort", a REG_DWORD), or nothing.
std::optional<std::uint32_t> getRolloutCohort();
// Keeps the cohort beside the version; false when the record cannot take it. Never creates
// the key.
bool setRolloutCohort(std::uint32_t cohort);

// Empty when the product record can be read, also when it is absent (not installed);
// otherwise why the registry itself cannot be read.
std::optional<std::string> productRecordError();

// Reads a string value of the product key: size query, then data query, trailing NULs
// removed. Empty when either query fails.
std::string readProductString(const std::string& name);

}  // namespace velk::updater
