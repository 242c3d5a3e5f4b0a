#include <chrono>
#include <filesystem>

#include "apply/file_updater.hpp"
#include "apply/file_updater_impl.hpp"
#include "installation/file_sweep.hpp"
#include "installation/product_files.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

// A partial download waits for a later run only with its record, and for a week at most.
constexpr auto kPartialLifetime = std::chrono::hours(24 * 7);

bool isStalePartial(const fs::path& path, const std::string& name) {
    const auto age = fs::file_time_type::clock::now() - fs::last_write_time(path);
    if (age > kPartialLifetime) return name.ends_with(kPartialSuffix) || name.ends_with(kResumeSuffix);
    if (name.ends_with(kPartialSuffix)) return !fs::exists(InstallationLayout::resumeRecord(path.string()));
    if (name.ends_with(kResumeSuffix)) {
        return !fs::exists(path.string().substr(0, path.string().size() - std::string(kResumeSuffix).size()));
    }
    return false;
}

}  // namespace

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
        sweepFiles(directory, {[&](const std::string& name) { return isStalePartial(fs::path(directory) / name, name); },
                               [&](const fs::path& path, const std::string& name) {
                                   logger.debug("Removed stale partial download: " + name);
                                   return fs::remove(path);
                               },
                               sweep.failed});
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
