#include "apply/self_updater.hpp"

#include <filesystem>

#include "installation/file_sweep.hpp"
#include "installation/product_files.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

bool isOldUpdaterCopy(const std::string& name) {
    // Every name holding "VELK_Updater" holds "Updater" too.
    return (name.ends_with(".old") || name.ends_with(".bak")) &&
           name.find("Updater") != std::string::npos;
}

}  // namespace

struct SelfUpdater::Impl {
    SelfUpdaterConfig config;
    Logger& logger;

    void removeOldExecutableCopy(const fs::path& oldCopy) {
        logger.warning("Old backup still exists: " + oldCopy.string());
        try {
            fs::remove(oldCopy);
            logger.info("Cleaned up old backup");
        } catch (const std::exception&) {
            logger.warning("Failed to remove old backup (may be in use)");
        }
    }
};

SelfUpdater::SelfUpdater(const SelfUpdaterConfig& config, Logger& logger)
    : impl_(std::make_unique<Impl>(Impl{config, logger})) {}

SelfUpdater::~SelfUpdater() = default;

bool SelfUpdater::isUpdaterFile(const ManifestFile& file) const { return product::isUpdaterRuntimeFile(file.name); }

bool SelfUpdater::verifySelfUpdate() {
    Logger& logger = impl_->logger;
    const std::string& executable = impl_->config.currentExecutable;
    logger.info("Verifying self-update...");
    try {
        if (!fs::exists(executable)) {
            logger.error("Current exe not found: " + executable);
            return false;
        }
        const fs::path oldCopy = executable + ".old";
        if (fs::exists(oldCopy)) impl_->removeOldExecutableCopy(oldCopy);
        logger.info("Self-update verification successful");
        return true;
    } catch (const std::exception& error) {
        logger.error(std::string("Self-update verification failed: ") + error.what());
        return false;
    }
}

void SelfUpdater::cleanupOldBackups() {
    Logger& logger = impl_->logger;
    logger.info("Cleaning up old updater backups...");
    try {
        const fs::path directory = impl_->config.installDirectory;
        if (!fs::exists(directory)) return;
        const int removed = sweepFiles(
            directory, {isOldUpdaterCopy,
                        [&](const fs::path& path, const std::string& name) {
                            if (!fs::remove(path)) return false;
                            logger.info("Removed old backup: " + name);
                            return true;
                        },
                        [&](const fs::path& path, const std::exception& error) {
                            logger.warning("Error processing file: " + path.string() + " - " + error.what());
                        }});
        if (removed > 0) {
            logger.info("Cleaned up " + std::to_string(removed) + " old backup files");
        } else {
            logger.debug("No old backup files found");
        }
    } catch (const std::exception& error) {
        logger.warning(std::string("Error during backup cleanup: ") + error.what());
    }
}

}  // namespace velk::updater
