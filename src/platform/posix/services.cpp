#include "platform/services.hpp"

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "platform/posix/registry_file.hpp"
#include "platform/posix/system_root.hpp"
#include "platform/registry.hpp"

// Services are registry keys below SYSTEM\CurrentControlSet\Services, as on Windows, and
// the driver store is a folder under the system root. The results are the exit codes the
// Windows tools give for the same outcome.
namespace velk::updater::platform {
namespace {

namespace fs = std::filesystem;

const std::string kServicesKey = "SYSTEM\\CurrentControlSet\\Services\\";
constexpr std::uint32_t kOwnProcessService = 0x10;
constexpr std::uint32_t kKernelDriver = 1;
constexpr std::uint32_t kDemandStart = 3;

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string dword(std::uint32_t value) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>((value >> shift) & 0xFF);
    return bytes;
}

std::string text(const std::string& value) { return value + '\0'; }

std::string serviceKey(const std::string& name) { return machineKeyPath(kServicesKey + name); }

int registerService(RegistryFile& registry, const std::string& name, std::uint32_t type,
                    const std::string& imagePath, const std::string& displayName) {
    if (registry.findKey(serviceKey(name)) != nullptr) return kServiceExists;
    RegistryKeyData& key = registry.createKey(serviceKey(name));
    key.setValue("Type", kRegDword, dword(type));
    key.setValue("Start", kRegDword, dword(kDemandStart));
    key.setValue("ErrorControl", kRegDword, dword(1));
    key.setValue("ImagePath", kRegExpandSz, text(imagePath));
    if (!displayName.empty()) key.setValue("DisplayName", kRegSz, text(displayName));
    key.setValue("ObjectName", kRegSz, text(type == kKernelDriver ? "" : "LocalSystem"));
    return registry.save() ? 0 : kInvalidParameter;
}

fs::path driverStore() { return fs::path(systemRoot()) / "DriverStore"; }

// The first package in the store whose file name passes `matches`, lower-cased.
template <typename Matches>
bool storeHas(Matches matches) {
    std::error_code error;
    if (!fs::is_directory(driverStore(), error)) return false;
    for (const auto& entry : fs::directory_iterator(driverStore(), error)) {
        if (matches(lower(entry.path().filename().string()))) return true;
    }
    return false;
}

}  // namespace

// The manager cannot be opened only when the registry itself cannot be read.
ServicePresence queryServicePresence(const std::string& name) {
    ServicePresence presence;
    const auto registry = RegistryFile::load();
    if (!registry) return presence;
    presence.managerOpened = true;
    presence.serviceOpened = !name.empty() && registry->findKey(serviceKey(name)) != nullptr;
    return presence;
}

int createService(const std::string& name, const std::string& displayName, const std::string& binaryPath) {
    auto registry = RegistryFile::load();
    if (!registry || name.empty()) return kInvalidParameter;
    return registerService(*registry, name, kOwnProcessService, binaryPath, displayName);
}

int setServiceDescription(const std::string& name, const std::string& description) {
    auto registry = RegistryFile::load();
    if (!registry) return kInvalidParameter;
    RegistryKeyData* key = registry->findKey(serviceKey(name));
    if (key == nullptr) return kServiceDoesNotExist;
    key->setValue("Description", kRegSz, text(description));
    return registry->save() ? 0 : kInvalidParameter;
}

int addDriverPackage(const std::string& infPath) {
    std::error_code error;
    if (!fs::is_regular_file(infPath, error)) return kFileNotFound;
    const std::string infName = fs::path(infPath).filename().string();
    if (storeHas([&](const std::string& name) { return name == lower(infName); })) return kDriverPackageExists;
    auto registry = RegistryFile::load();
    if (!registry) return kInvalidParameter;
    fs::create_directories(driverStore(), error);
    if (!fs::copy_file(infPath, driverStore() / infName, error)) return kInvalidParameter;
    const std::string driver = fs::path(infPath).stem().string();
    const int created = registerService(*registry, driver, kKernelDriver,
                                        "\\SystemRoot\\System32\\drivers\\" + driver + ".sys", driver);
    return created == kServiceExists ? 0 : created;
}

int findDriverPackage(const std::string& text) {
    const std::string wanted = lower(text);
    return storeHas([&](const std::string& name) { return name.find(wanted) != std::string::npos; }) ? 0 : 1;
}

}  // namespace velk::updater::platform
