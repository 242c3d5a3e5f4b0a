#include "platform/registry.hpp"

#include <cstring>
#include <utility>

#include "platform/posix/registry_file.hpp"

namespace velk::updater::platform {
namespace {

// Copies `bytes` out the way the Win32 query calls do: size only, too small, or data.
long copyOut(const std::string& bytes, void* data, std::uint32_t* size) {
    const auto needed = static_cast<std::uint32_t>(bytes.size());
    if (data == nullptr) {
        if (size != nullptr) *size = needed;
        return kErrorSuccess;
    }
    if (size == nullptr) return kErrorAccessDenied;
    if (*size < needed) {
        *size = needed;
        return kErrorMoreData;
    }
    std::memcpy(data, bytes.data(), bytes.size());
    *size = needed;
    return kErrorSuccess;
}

}  // namespace

RegistryKey::~RegistryKey() { close(); }

RegistryKey::RegistryKey(RegistryKey&& other) noexcept { *this = std::move(other); }

RegistryKey& RegistryKey::operator=(RegistryKey&& other) noexcept {
    if (this != &other) {
        close();
        subKey_ = std::move(other.subKey_);
        access_ = other.access_;
        open_ = std::exchange(other.open_, false);
    }
    return *this;
}

void RegistryKey::close() { open_ = false; }

long RegistryKey::open(const std::string& subKey, RegistryAccess access) {
    close();
    const auto registry = RegistryFile::load();
    if (!registry) return kErrorBadDatabase;
    if (registry->findKey(machineKeyPath(subKey)) == nullptr) return kErrorFileNotFound;
    subKey_ = subKey;
    access_ = access;
    open_ = true;
    return kErrorSuccess;
}

long RegistryKey::queryValue(const std::string& name, std::uint32_t* type, void* data,
                             std::uint32_t* size) const {
    if (!open_) return kErrorAccessDenied;
    const auto registry = RegistryFile::load();
    if (!registry) return kErrorBadDatabase;
    const RegistryKeyData* key = registry->findKey(machineKeyPath(subKey_));
    const RegistryValue* value = key != nullptr ? key->findValue(name) : nullptr;
    if (value == nullptr) return kErrorFileNotFound;
    if (type != nullptr) *type = value->type;
    return copyOut(value->data, data, size);
}

long RegistryKey::setValue(const std::string& name, std::uint32_t type, const void* data,
                           std::uint32_t size) {
    if (!open_ || access_ != RegistryAccess::SetValue) return kErrorAccessDenied;
    auto registry = RegistryFile::load();
    if (!registry) return kErrorBadDatabase;
    RegistryKeyData* key = registry->findKey(machineKeyPath(subKey_));
    if (key == nullptr) return kErrorFileNotFound;
    key->setValue(name, type, std::string(static_cast<const char*>(data), size));
    return registry->save() ? kErrorSuccess : kErrorAccessDenied;
}

long getStringValue(const std::string& subKey, const std::string& name, void* data,
                    std::uint32_t* size) {
    const auto registry = RegistryFile::load();
    if (!registry) return kErrorBadDatabase;
    const RegistryKeyData* key = registry->findKey(machineKeyPath(subKey));
    const RegistryValue* value = key != nullptr ? key->findValue(name) : nullptr;
    if (value == nullptr) return kErrorFileNotFound;
    // Expandable strings are returned unexpanded: the Linux layer has no such variables.
    if (value->type != kRegSz && value->type != kRegExpandSz) return kErrorUnsupportedType;
    std::string bytes = value->data;
    if (bytes.empty() || bytes.back() != '\0') bytes += '\0';
    return copyOut(bytes, data, size);
}

std::string describeRegistryError(long status) {
    if (isRegistryUnreadable(status)) {
        return RegistryFile::filePath() + " cannot be read or parsed (error " + std::to_string(status) + ")";
    }
    return "error " + std::to_string(status);
}

}  // namespace velk::updater::platform
