#include "installation/logging_settings.hpp"

#include <chrono>
#include <filesystem>

#include "installation/version_record.hpp"
#include "platform/registry.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;
namespace reg = platform;

const std::string kLoggingKey = std::string(kProductRegistryKey) + "\\Logging";

std::chrono::system_clock::time_point toSystemTime(fs::file_time_type fileTime) {
    return std::chrono::time_point_cast<std::chrono::system_clock::duration>(
        fileTime - fs::file_time_type::clock::now() + std::chrono::system_clock::now());
}

// Deletes one expired log file; false (after a warning) when that failed.
bool removeExpired(const fs::directory_entry& entry, Logger& logger) {
    try {
        fs::remove(entry.path());
        logger.info("Cleaned up old log file: " + entry.path().filename().string());
        return true;
    } catch (const std::exception& error) {
        logger.warning("Failed to remove log file " + entry.path().string() + ": " + error.what());
        return false;
    }
}

}  // namespace

std::uint32_t readLoggingDword(const std::string& name, std::uint32_t defaultValue) {
    reg::RegistryKey key;
    if (key.open(kLoggingKey, reg::RegistryAccess::Read) != reg::kErrorSuccess) return defaultValue;
    std::uint32_t value = defaultValue;
    std::uint32_t type = 0;
    std::uint32_t size = sizeof value;
    const long status = key.queryValue(name, &type, &value, &size);
    key.close();
    return status == reg::kErrorSuccess && type == reg::kRegDword ? value : defaultValue;
}

std::string readLoggingString(const std::string& name, const std::string& defaultValue) {
    reg::RegistryKey key;
    if (key.open(kLoggingKey, reg::RegistryAccess::Read) != reg::kErrorSuccess) return defaultValue;
    std::uint32_t size = 0;
    if (key.queryValue(name, nullptr, nullptr, &size) != reg::kErrorSuccess || size == 0) {
        return defaultValue;
    }
    std::string buffer(size, '\0');
    std::uint32_t type = 0;
    const long status = key.queryValue(name, &type, buffer.data(), &size);
    key.close();
    if (status != reg::kErrorSuccess || type != reg::kRegSz) return defaultValue;
    buffer.resize(size);
    buffer.pop_back();  // the terminating NUL
    return buffer;
}

bool isUpdaterLoggingEnabled() { return readLoggingDword("EnableUpdaterLogs", 1) != 0; }

void cleanupOldLogs(const std::string& logDirectory, Logger& logger) {
    try {
        if (readLoggingDword("CleanupOnStartup", 0) == 0) return;
        const std::uint32_t days = readLoggingDword("LogRetentionDays", 30);
        const auto cutoff = std::chrono::system_clock::now() - std::chrono::hours(24) * days;
        if (!fs::exists(logDirectory)) return;

        unsigned removed = 0;
        for (const auto& entry : fs::directory_iterator(logDirectory)) {
            if (!entry.is_regular_file() || entry.path().extension() != ".log") continue;
            if (toSystemTime(entry.last_write_time()) >= cutoff) continue;
            if (removeExpired(entry, logger)) ++removed;
        }
        if (removed > 0) {
            logger.info("Log cleanup completed: removed " + std::to_string(removed) +
                        " old log files");
        }
    } catch (const std::exception& error) {
        logger.warning(std::string("Log cleanup failed: ") + error.what());
    }
}

}  // namespace velk::updater
