#include <algorithm>
#include <array>
#include <filesystem>
#include <functional>

#include "client/update_client.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

constexpr std::array<const char*, 9> kStagingNames = {
    "VELK_Service.exe.staging", "VELK_Sys_x64.sys.staging", "VELK.dll.staging",
    "VELK_Launcher.exe.staging", "VELK_Updater.exe.staging", "Updater.exe.staging",
    "libcurl.dll.staging",      "libsodium.dll.staging",    "zlib1.dll.staging"};

constexpr std::array<const char*, 9> kTempNames = {
    "VELK_Service.exe.tmp", "VELK_Sys.sys.tmp", "VELK.dll.tmp", "VELK_Launcher.exe.tmp",
    "VELK_Updater.exe.tmp", "Updater.exe.tmp",  "libcurl.dll.tmp", "libsodium.dll.tmp",
    "zlib1.dll.tmp"};

bool endsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

template <std::size_t N>
bool isKnown(const std::array<const char*, N>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

bool isStagingLeftover(const std::string& name) {
    return isKnown(kStagingNames, name) ||
           (name.size() >= 8 && endsWith(name, ".staging") &&
            (name.find("VELK") != std::string::npos || name.find("velk") != std::string::npos));
}

bool isTempLeftover(const std::string& name) {
    return isKnown(kTempNames, name) || (name.rfind("VELK", 0) == 0 && endsWith(name, ".tmp"));
}

// Removes the regular files of `directory` that `matches` accepts; `remove` removes and
// logs one file and says whether it counts. A failing entry is logged and passed over.
int removeLeftovers(Logger& logger, const fs::path& directory, const std::function<bool(const std::string&)>& matches,
                    const std::function<bool(const fs::path&, const std::string&)>& remove,
                    const std::string& entryWarning) {
    int removed = 0;
    for (const auto& entry : fs::directory_iterator(directory)) {
        try {
            if (!entry.is_regular_file()) continue;
            const std::string name = entry.path().filename().string();
            if (matches(name) && remove(entry.path(), name)) ++removed;
        } catch (const std::exception& error) {
            logger.warning(entryWarning + entry.path().string() + " - " + error.what());
        }
    }
    return removed;
}

}  // namespace

void UpdateClient::cleanupBackupFiles() {
    try {
        logger.info("Cleaning up backup files...");
        const fs::path directory = fileUpdaterConfig.backupDirectory;
        if (!fs::exists(directory)) {
            logger.info("No backup directory found, nothing to clean up");
            return;
        }
        for (const auto& entry : fs::directory_iterator(directory)) {
            try {
                if (entry.is_regular_file()) {
                    fs::remove(entry.path());
                    logger.debug("Removed backup file: " + entry.path().string());
                }
            } catch (const std::exception& error) {
                logger.warning("Failed to remove backup file: " + entry.path().string() + " - " + error.what());
            }
        }
        if (fs::remove(directory)) {
            logger.info("Backup directory removed successfully: " + directory.string());
        } else {
            logger.warning("Failed to remove backup directory: " + directory.string());
        }
    } catch (const std::exception& error) {
        logger.warning(std::string("Error during backup cleanup: ") + error.what());
    }
}

void UpdateClient::cleanupStagingFiles() {
    try {
        logger.info("Cleaning up leftover staging files...");
        const fs::path directory = fileUpdaterConfig.installDirectory;
        if (!fs::exists(directory)) {
            logger.debug("Install directory does not exist: " + directory.string());
            return;
        }
        const int removed = removeLeftovers(
            logger, directory, isStagingLeftover,
            [this](const fs::path& path, const std::string& name) {
                fs::remove(path);  // what it reports is not examined
                logger.info("Removed leftover staging file: " + name);
                return true;
            },
            "Failed to process staging file: ");
        if (removed < 1) {
            logger.debug("No leftover staging files found");
        } else {
            logger.info("Cleaned up " + std::to_string(removed) + " leftover staging files");
        }
    } catch (const std::exception& error) {
        logger.warning(std::string("Error during staging file cleanup: ") + error.what());
    }
}

void UpdateClient::cleanupTempFiles() {
    try {
        logger.info("Cleaning up leftover temporary files...");
        const fs::path directory = fs::temp_directory_path();
        if (!fs::exists(directory)) {
            logger.debug("Temp directory does not exist: " + directory.string());
            return;
        }
        const int removed = removeLeftovers(
            logger, directory, isTempLeftover,
            [this](const fs::path& path, const std::string& name) {
                if (!fs::remove(path)) {
                    logger.warning("Failed to remove temp file: " + name);
                    return false;
                }
                logger.info("Removed leftover temp file: " + name);
                return true;
            },
            "Error processing temp file: ");
        if (removed < 1) {
            logger.debug("No leftover VELK temporary files found");
        } else {
            logger.info("Cleaned up " + std::to_string(removed) + " leftover temporary files");
        }
    } catch (const std::exception& error) {
        logger.warning(std::string("Error during temp file cleanup: ") + error.what());
    }
}

}  // namespace velk::updater
