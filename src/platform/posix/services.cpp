#include "platform/services.hpp"

#include "platform/posix/registry_file.hpp"

namespace velk::updater::platform {

// Services are registry keys below SYSTEM\CurrentControlSet\Services, as on Windows; the
// manager cannot be opened only when the registry itself cannot be read.
ServicePresence queryServicePresence(const std::string& name) {
    ServicePresence presence;
    const auto registry = RegistryFile::load();
    if (!registry) return presence;
    presence.managerOpened = true;
    presence.serviceOpened =
        !name.empty() &&
        registry->findKey(machineKeyPath("SYSTEM\\CurrentControlSet\\Services\\" + name)) != nullptr;
    return presence;
}

}  // namespace velk::updater::platform
