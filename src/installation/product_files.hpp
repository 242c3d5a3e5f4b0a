#pragma once

#include <array>
#include <string>

// The product's files, service and driver: every name the updater knows them by.
namespace velk::updater::product {

inline constexpr const char* kServiceName = "VELKSvc";
inline constexpr const char* kServiceDisplayName = "VELK Anti-Cheat Service";
inline constexpr const char* kServiceDescription = "Plexwynd Anti-Cheat monitoring service";
inline constexpr const char* kServiceExecutable = "VELK_Service.exe";
inline constexpr const char* kDriverName = "VELK_Sys";
inline constexpr const char* kDriverInf = "VELK_Sys.inf";
inline constexpr std::array<const char*, 2> kDriverFiles = {"VELK_Sys.sys", "VELK_Sys.cat"};
// What the driver store lists for the product's package.
inline constexpr const char* kDriverStoreMatch = "VELK";

// Files that a working installation cannot do without.
inline constexpr std::array<const char*, 3> kRequiredFiles = {"VELK_Service.exe", "VELK.dll",
                                                              "VELK_Launcher.exe"};

// The updaters' own executables: an update never checks, installs or downloads them.
bool isUpdaterExecutable(const std::string& name);
// Files the running updaters hold open: fetched beside their targets, swapped later by the
// windowed updater.
bool isUpdaterRuntimeFile(const std::string& name);

// A staging copy ("<file>.staging") an interrupted installation left beside a product file.
bool isStagingLeftover(const std::string& name);
// A product download ("VELK....tmp", or its archive "....tmp.zip") an interrupted run left in
// the temporary folder.
bool isProductDownload(const std::string& name);
// Any temporary copy of a product or updater file in the temporary folder.
bool isTempLeftover(const std::string& name);

}  // namespace velk::updater::product
