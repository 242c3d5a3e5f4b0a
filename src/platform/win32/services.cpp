#include "platform/services.hpp"

#include <windows.h>

namespace velk::updater::platform {
namespace {

// Closes a service control handle when it goes out of scope.
class ScHandle {
public:
    explicit ScHandle(SC_HANDLE handle) : handle_(handle) {}
    ~ScHandle() {
        if (handle_ != nullptr) CloseServiceHandle(handle_);
    }
    ScHandle(const ScHandle&) = delete;
    ScHandle& operator=(const ScHandle&) = delete;
    SC_HANDLE get() const { return handle_; }
    explicit operator bool() const { return handle_ != nullptr; }

private:
    SC_HANDLE handle_;
};

}  // namespace

ServicePresence queryServicePresence(const std::string& name) {
    ServicePresence presence;
    ScHandle manager(OpenSCManagerA(nullptr, nullptr, SC_MANAGER_CONNECT));
    if (!manager) return presence;
    presence.managerOpened = true;
    ScHandle service(OpenServiceA(manager.get(), name.c_str(), SERVICE_QUERY_STATUS));
    presence.serviceOpened = static_cast<bool>(service);
    return presence;
}

}  // namespace velk::updater::platform
