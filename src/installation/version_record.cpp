#include "installation/version_record.hpp"

#include <algorithm>
#include <cstdint>

#include "platform/registry.hpp"

namespace velk::updater {
namespace {

namespace reg = platform;

constexpr const char* kRolloutCohortValue = "RolloutCohort";

std::string trimTrailingNuls(std::string text) {
    while (!text.empty() && text.back() == '\0') text.pop_back();
    return text;
}

// Asks for `first`, and for `fallback` when that fails; returns the status of the last ask.
long sizeOf(const std::string& first, const std::string& fallback, std::uint32_t& size) {
    long status = reg::getStringValue(kProductRegistryKey, first, nullptr, &size);
    if (status != reg::kErrorSuccess && !fallback.empty()) {
        status = reg::getStringValue(kProductRegistryKey, fallback, nullptr, &size);
    }
    return status;
}

long dataOf(const std::string& first, const std::string& fallback, std::string& buffer) {
    auto size = static_cast<std::uint32_t>(buffer.size());
    long status = reg::getStringValue(kProductRegistryKey, first, buffer.data(), &size);
    if (status != reg::kErrorSuccess && !fallback.empty()) {
        size = static_cast<std::uint32_t>(buffer.size());
        status = reg::getStringValue(kProductRegistryKey, fallback, buffer.data(), &size);
    }
    if (status == reg::kErrorSuccess) buffer.resize(std::min<std::size_t>(size, buffer.size()));
    return status;
}

std::string readString(const std::string& name, const std::string& fallback) {
    std::uint32_t size = 0;
    if (sizeOf(name, fallback, size) != reg::kErrorSuccess) return {};
    std::string buffer(size, '\0');
    if (dataOf(name, fallback, buffer) != reg::kErrorSuccess) return {};
    return trimTrailingNuls(std::move(buffer));
}

// The text with its terminating NUL, as the registry stores narrow strings.
long writeString(reg::RegistryKey& key, const std::string& name, const std::string& text) {
    return key.setValue(name, reg::kRegSz, text.c_str(), static_cast<std::uint32_t>(text.size() + 1));
}

}  // namespace

std::string readProductString(const std::string& name) { return readString(name, {}); }

std::optional<std::string> productRecordError() {
    std::uint32_t size = 0;
    const long status = reg::getStringValue(kProductRegistryKey, "Version", nullptr, &size);
    if (!reg::isRegistryUnreadable(status)) return std::nullopt;
    return reg::describeRegistryError(status);
}

std::optional<std::uint32_t> getRolloutCohort() {
    reg::RegistryKey key;
    if (key.open(kProductRegistryKey, reg::RegistryAccess::Read) != reg::kErrorSuccess) return std::nullopt;
    std::uint32_t value = 0;
    std::uint32_t type = 0;
    std::uint32_t size = sizeof value;
    if (key.queryValue(kRolloutCohortValue, &type, &value, &size) != reg::kErrorSuccess || type != reg::kRegDword) {
        return std::nullopt;
    }
    return value;
}

bool setRolloutCohort(std::uint32_t cohort) {
    reg::RegistryKey key;
    if (key.open(kProductRegistryKey, reg::RegistryAccess::SetValue) != reg::kErrorSuccess) return false;
    return key.setValue(kRolloutCohortValue, reg::kRegDword, &cohort, sizeof cohort) == reg::kErrorSuccess;
}

std::string getInstalledVersion() { return readString("Version", "VELKInstalled"); }

std::string getInstalledBuildNumber() { return readString("BuildNumber", {}); }

bool setInstalledVersion(const std::string& version, const std::string& buildNumber) {
    reg::RegistryKey key;
    if (key.open(kProductRegistryKey, reg::RegistryAccess::SetValue) != reg::kErrorSuccess) {
        return false;
    }
    bool result = true;
    if (!version.empty()) {
        result = writeString(key, "Version", version) == reg::kErrorSuccess;
        // The second copy is kept for older readers; its outcome does not count.
        writeString(key, "VELKInstalled", version);
    }
    if (!buildNumber.empty() && writeString(key, "BuildNumber", buildNumber) != reg::kErrorSuccess) {
        result = false;
    }
    return result;
}

}  // namespace velk::updater
