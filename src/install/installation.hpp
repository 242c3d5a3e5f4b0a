#pragma once

#include <string>

#include "install/version_record.hpp"

namespace velk::updater {

// The registry's "InstallPath" without trailing separators or NULs, or empty.
std::string getRegistryInstallPath();
// The registry's path, else Program Files + "\VELK", else "C:\Program Files\VELK".
std::string getDefaultInstallDirectory();
// The system's temporary directory; throws the filesystem error when there is none.
std::string getTempDirectory();

// The directory exists, holds the product's required files and can be written to.
// Leaves nothing behind but may briefly create a test file.
ValidationResult validateInstallation(const std::string& installDirectory);
// The product's service "VELKSvc" and kernel driver "VELK_Sys" are registered.
ValidationResult validateServicesAndDrivers();
bool isServiceInstalled(const std::string& name);
bool isDriverInstalled(const std::string& name);

// Registers the product's service with the service executable of `installDirectory` and
// describes it. The creation's result: 0, or the error code of the service manager.
int registerProductService(const std::string& installDirectory);

}  // namespace velk::updater
