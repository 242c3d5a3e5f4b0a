#include <filesystem>

#include "apply/update_client.hpp"
#include "installation/file_sweep.hpp"
#include "installation/product_files.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

bool anyFile(const std::string&) { return true; }

}  // namespace

void UpdateClient::cleanupBackupFiles() {
    try {
        logger.info("Cleaning up backup files...");
        const fs::path directory = layout.backupDirectory();
        if (!fs::exists(directory)) {
            logger.info("No backup directory found, nothing to clean up");
            return;
        }
        sweepFiles(directory, {anyFile,
                               [this](const fs::path& path, const std::string&) {
                                   fs::remove(path);
                                   logger.debug("Removed backup file: " + path.string());
                                   return true;
                               },
                               [this](const fs::path& path, const std::exception& error) {
                                   logger.warning("Failed to remove backup file: " + path.string() + " - " +
                                                  error.what());
                               }});
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
        const fs::path directory = layout.installDirectory();
        if (!fs::exists(directory)) {
            logger.debug("Install directory does not exist: " + directory.string());
            return;
        }
        const int removed = sweepFiles(
            directory, {product::isStagingLeftover,
                        [this](const fs::path& path, const std::string& name) {
                            fs::remove(path);  // what it reports is not examined
                            logger.info("Removed leftover staging file: " + name);
                            return true;
                        },
                        [this](const fs::path& path, const std::exception& error) {
                            logger.warning("Failed to process staging file: " + path.string() + " - " +
                                           error.what());
                        }});
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
        const fs::path directory = layout.downloadDirectory();
        if (!fs::exists(directory)) {
            logger.debug("Temp directory does not exist: " + directory.string());
            return;
        }
        const int removed = sweepFiles(
            directory, {product::isTempLeftover,
                        [this](const fs::path& path, const std::string& name) {
                            if (!fs::remove(path)) {
                                logger.warning("Failed to remove temp file: " + name);
                                return false;
                            }
                            logger.info("Removed leftover temp file: " + name);
                            return true;
                        },
                        [this](const fs::path& path, const std::exception& error) {
                            logger.warning("Error processing temp file: " + path.string() + " - " + error.what());
                        }});
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
