#include <filesystem>

#include "apply/file_updater.hpp"
#include "apply/file_updater_impl.hpp"
#include "installation/file_sweep.hpp"
#include "installation/product_files.hpp"

namespace velk::updater {

namespace fs = std::filesystem;

bool FileUpdater::purgeTempFiles() {
    Logger& logger = impl_->logger;
    const std::string& directory = impl_->config.layout.downloadDirectory();
    logger.info("Cleaning up VELK temporary files...");
    try {
        if (!fs::exists(directory)) {
            logger.debug("Temp directory does not exist: " + directory);
            return true;
        }
        const FileSweep sweep{
            product::isProductDownload,
            [&](const fs::path& path, const std::string& name) {
                if (!fs::remove(path)) {
                    logger.warning("Failed to remove temp file: " + name);
                    return false;
                }
                logger.debug("Removed temp file: " + name);
                return true;
            },
            [&](const fs::path& path, const std::exception& error) {
                logger.warning("Error processing temp file: " + path.string() + " - " + error.what());
            }};
        const int removed = sweepFiles(directory, sweep);
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
