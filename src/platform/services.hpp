#pragma once

#include <string>

namespace velk::updater::platform {

// What opening the service control manager and then a service by name gave.
struct ServicePresence {
    bool managerOpened = false;  // OpenSCManagerA with SC_MANAGER_CONNECT
    bool serviceOpened = false;  // OpenServiceA with SERVICE_QUERY_STATUS
};

// Opens the local service control manager and the named service (ordinary or kernel
// driver) to test that it is registered; every handle is closed before returning.
ServicePresence queryServicePresence(const std::string& name);

}  // namespace velk::updater::platform
