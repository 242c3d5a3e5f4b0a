#pragma once

#include <string>

#include "common/validation_result.hpp"
#include "installation/layout.hpp"

namespace velk::updater {

// The registry's "InstallPath" without trailing separators or NULs, or empty.
std::string getRegistryInstallPath();
// The registry's path, else Program Files + "\VELK", else "C:\Program Files\VELK".
std::string getDefaultInstallDirectory();

// The installation folder exists, holds the product's required files and can be written
// to. Leaves nothing behind but may briefly create the layout's write-test file.
ValidationResult validateInstallation(const InstallationLayout& layout);
// The product's service "VELKSvc" and kernel driver "VELK_Sys" are registered.
ValidationResult validateServicesAndDrivers();
// Whether the service manager knows the service; a kernel driver is a service to it too.
bool isServiceInstalled(const std::string& name);
inline bool isDriverInstalled(const std::string& name) { return isServiceInstalled(name); }

// Registers the product's service with the service executable of the layout's installation
// and describes it. The creation's result: 0, or the error code of the service manager.
int registerProductService(const InstallationLayout& layout);

}  // namespace velk::updater
