#include <algorithm>
#include <array>
#include <filesystem>

#include "files/file_updater.hpp"
#include "files/file_updater_impl.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

constexpr std::array<const char*, 4> kKnownTempNames = {"VELK_Service.exe.tmp", "VELK_Sys.sys.tmp", "VELK.dll.tmp",
                                                        "VELK_Launcher.exe.tmp"};

bool isProductDownload(const std::string& name) {
    const bool known = std::find(kKnownTempNames.begin(), kKnownTempNames.end(), name) != kKnownTempNames.end();
    const bool pattern = name.rfind("VELK", 0) == 0 && name.size() >= 4 &&
                         name.compare(name.size() - 4, 4, ".tmp") == 0;
    return known || pattern;
}

}  // namespace

bool FileUpdater::purgeTempFiles() {
    Logger& logger = impl_->logger;
    const std::string& directory = impl_->config.tempDirectory;
    logger.info("Cleaning up VELK temporary files...");
    try {
        if (!fs::exists(directory)) {
            logger.debug("Temp directory does not exist: " + directory);
            return true;
        }
        int removed = 0;
        for (const auto& entry : fs::directory_iterator(directory)) {
            try {
                if (!entry.is_regular_file()) continue;
                const std::string name = entry.path().filename().string();
                if (!isProductDownload(name)) continue;
                if (fs::remove(entry.path())) {
                    logger.debug("Removed temp file: " + name);
                    ++removed;
                } else {
                    logger.warning("Failed to remove temp file: " + name);
                }
            } catch (const std::exception& error) {
                logger.warning("Error processing temp file: " + entry.path().string() + " - " + error.what());
            }
        }
        if (removed > 0) {
            logger.info("Cleaned up " + std::to_string(removed) + " VELK temporary files");
        } else {
            logger.debug("No VELK temporary files found");
        }
        return true;
    } catch (const std::exception& error) {
        logger.error(std::string("Failed to cleanup temp files: ") + error.what());
        return false;
    }
}

}  // namespace velk::updater
