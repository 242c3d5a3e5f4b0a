#pragma once

#include <string>

// The service control manager and the driver store, at the level the updater uses them.
// Results are the exit codes of the Windows tools that carry the operations out there
// ("sc", "pnputil"): 0 on success, kServiceExists, kFileNotFound, kDriverPackageExists.
namespace velk::updater::platform {

inline constexpr int kFileNotFound = 2;            // ERROR_FILE_NOT_FOUND: the INF is missing
inline constexpr int kInvalidParameter = 87;       // ERROR_INVALID_PARAMETER
inline constexpr int kDriverPackageExists = 259;   // the package is already in the store
inline constexpr int kServiceDoesNotExist = 1060;  // ERROR_SERVICE_DOES_NOT_EXIST
inline constexpr int kServiceExists = 1073;        // ERROR_SERVICE_EXISTS

// What opening the service control manager and then a service by name gave.
struct ServicePresence {
    bool managerOpened = false;  // OpenSCManagerA with SC_MANAGER_CONNECT
    bool serviceOpened = false;  // OpenServiceA with SERVICE_QUERY_STATUS
};

// Opens the local service control manager and the named service (ordinary or kernel
// driver) to test that it is registered; every handle is closed before returning.
ServicePresence queryServicePresence(const std::string& name);

// Registers a demand-start service of its own process running `binaryPath`.
int createService(const std::string& name, const std::string& displayName, const std::string& binaryPath);
// Sets the description of a registered service.
int setServiceDescription(const std::string& name, const std::string& description);
// Adds a driver package to the driver store and installs it; its kernel driver is
// registered as a service named after the INF file.
int addDriverPackage(const std::string& infPath);
// 0 when a package in the driver store matches `text` (any case), else 1.
int findDriverPackage(const std::string& text);

// The command line that adds a driver package, as the Windows tool is run.
std::string addDriverPackageCommand(const std::string& infPath);

}  // namespace velk::updater::platform
