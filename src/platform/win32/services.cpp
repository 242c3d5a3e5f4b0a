#include "platform/services.hpp"

#include <windows.h>

#include <cstdlib>

#include "platform/win32/handles.hpp"

namespace velk::updater::platform {
namespace {

using win32::ServiceHandle;

// The Windows tools report through their exit codes, which is what callers expect.
int run(const std::string& commandLine) { return std::system(commandLine.c_str()); }

}  // namespace

ServicePresence queryServicePresence(const std::string& name) {
    ServicePresence presence;
    ServiceHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) return presence;
    presence.managerOpened = true;
    ServiceHandle service(OpenServiceA(manager.get(), name.c_str(), SERVICE_QUERY_STATUS));
    presence.serviceOpened = static_cast<bool>(service);
    return presence;
}

int createService(const std::string& name, const std::string& displayName, const std::string& binaryPath) {
    return run("sc create \"" + name + "\" binPath= \"" + binaryPath + "\" DisplayName= \"" + displayName +
               "\" start= demand");
}

int setServiceDescription(const std::string& name, const std::string& description) {
    return run("sc description \"" + name + "\" \"" + description + "\"");
}

int addDriverPackage(const std::string& infPath) { return run(addDriverPackageCommand(infPath)); }

int findDriverPackage(const std::string& text) {
    return run("pnputil.exe /enum-drivers | findstr /i \"" + text + "\"");
}

}  // namespace velk::updater::platform
