#include "files/file_updater.hpp"

#include <ctime>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "files/file_updater_impl.hpp"
#include "platform/clean_text.hpp"
#include "platform/local_time.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

std::string localTimeStamp() {
    const std::tm local = platform::localTime(std::chrono::system_clock::to_time_t(std::chrono::system_clock::now()));
    std::ostringstream text;
    text << std::put_time(&local, "%Y%m%d_%H%M%S");
    return text.str();
}

}  // namespace

void printProgress(const UpdateProgress& progress) {
    // One write, so that a log line from the logger's worker cannot land inside it.
    std::string text = "\r[" + std::to_string(progress.percentComplete) + "%] " + progress.currentOperation;
    if (!progress.currentFile.empty()) text += ": " + platform::escapeControlCharacters(progress.currentFile);
    if (progress.percentComplete == 100) text += "\n";
    std::cout << text;
    std::cout.flush();
}

FileUpdater::FileUpdater(const FileUpdaterConfig& config, HttpClient& httpClient, Logger& logger)
    : impl_(std::make_unique<Impl>(config, httpClient, logger)) {}

FileUpdater::~FileUpdater() = default;

bool FileUpdater::initialize() {
    const FileUpdaterConfig& config = impl_->config;
    Logger& logger = impl_->logger;
    try {
        if (!fs::exists(config.installDirectory)) {
            logger.warning("Install directory does not exist, creating it: " + config.installDirectory);
            fs::create_directories(config.installDirectory);
            logger.info("Install directory created successfully");
        } else if (!fs::is_directory(config.installDirectory)) {
            logger.error("Install path exists but is not a directory: " + config.installDirectory);
            return false;
        }
        fs::create_directories(config.backupDirectory);
        fs::create_directories(config.tempDirectory);
        logger.info("FileUpdater initialized successfully");
        logger.info("Install directory: " + config.installDirectory);
        return true;
    } catch (const std::exception& error) {
        logger.error(std::string("Failed to initialize FileUpdater: ") + error.what());
        return false;
    }
}

void FileUpdater::shutdown() {
    impl_->cancelRequested.store(true);
    impl_->logger.info("FileUpdater shutting down");
}

std::string FileUpdater::getTempPath(const ManifestFile& file) const {
    return (fs::path(impl_->config.tempDirectory) / (file.name + ".tmp")).string();
}

std::string FileUpdater::getBackupPath(const ManifestFile& file) const {
    return (fs::path(impl_->config.backupDirectory) / (file.name + "_" + localTimeStamp() + ".bak")).string();
}

bool FileUpdater::hasEnoughDiskSpace(std::uint64_t requiredBytes) {
    try {
        return fs::space(impl_->config.installDirectory).available >= requiredBytes;
    } catch (const std::exception& error) {
        impl_->logger.warning(std::string("Failed to check disk space: ") + error.what());
        return true;
    }
}

bool FileUpdater::isUrl(const std::string& text) {
    return text.rfind("http://", 0) == 0 || text.rfind("https://", 0) == 0;
}

std::uint64_t FileUpdater::successfulCount() const { return impl_->successfulCount; }
std::uint64_t FileUpdater::failedCount() const { return impl_->failedCount; }

}  // namespace velk::updater
