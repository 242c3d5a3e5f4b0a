#include "platform/registry.hpp"

#include <windows.h>

#include <utility>

namespace velk::updater::platform {

RegistryKey::~RegistryKey() { close(); }

RegistryKey::RegistryKey(RegistryKey&& other) noexcept { *this = std::move(other); }

RegistryKey& RegistryKey::operator=(RegistryKey&& other) noexcept {
    if (this != &other) {
        close();
        handle_ = std::exchange(other.handle_, nullptr);
        subKey_ = std::move(other.subKey_);
        access_ = other.access_;
        open_ = std::exchange(other.open_, false);
    }
    return *this;
}

void RegistryKey::close() {
    if (open_) {
        RegCloseKey(static_cast<HKEY>(handle_));
    }
    handle_ = nullptr;
    open_ = false;
}

long RegistryKey::open(const std::string& subKey, RegistryAccess access) {
    close();
    const REGSAM rights = access == RegistryAccess::Read ? KEY_READ : KEY_SET_VALUE;
    HKEY key = nullptr;
    const LSTATUS status = RegOpenKeyExA(HKEY_LOCAL_MACHINE, subKey.c_str(), 0, rights, &key);
    if (status != ERROR_SUCCESS) return status;
    handle_ = key;
    subKey_ = subKey;
    access_ = access;
    open_ = true;
    return ERROR_SUCCESS;
}

long RegistryKey::queryValue(const std::string& name, std::uint32_t* type, void* data,
                             std::uint32_t* size) const {
    DWORD valueType = 0;
    DWORD valueSize = size != nullptr ? *size : 0;
    const LSTATUS status =
        RegQueryValueExA(static_cast<HKEY>(handle_), name.c_str(), nullptr, &valueType,
                         static_cast<LPBYTE>(data), size != nullptr ? &valueSize : nullptr);
    if (type != nullptr) *type = valueType;
    if (size != nullptr) *size = valueSize;
    return status;
}

long RegistryKey::setValue(const std::string& name, std::uint32_t type, const void* data,
                           std::uint32_t size) {
    return RegSetValueExA(static_cast<HKEY>(handle_), name.c_str(), 0, type,
                          static_cast<const BYTE*>(data), size);
}

long getStringValue(const std::string& subKey, const std::string& name, void* data,
                    std::uint32_t* size) {
    DWORD valueSize = size != nullptr ? *size : 0;
    const LSTATUS status = RegGetValueA(HKEY_LOCAL_MACHINE, subKey.c_str(), name.c_str(),
                                        RRF_RT_REG_SZ, nullptr, data, &valueSize);
    if (size != nullptr) *size = valueSize;
    return status;
}

std::string describeRegistryError(long status) {
    char* text = nullptr;
    const DWORD length = FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS, nullptr,
        static_cast<DWORD>(status), 0, reinterpret_cast<char*>(&text), 0, nullptr);
    std::string message = length > 0 ? std::string(text, length) : std::string();
    LocalFree(text);
    while (!message.empty() && (message.back() == '\r' || message.back() == '\n' || message.back() == ' ')) {
        message.pop_back();
    }
    return (message.empty() ? "registry error" : message) + " (error " + std::to_string(status) + ")";
}

}  // namespace velk::updater::platform
