#include "apply/file_updater.hpp"

#include <filesystem>
#include <iostream>

#include "apply/file_updater_impl.hpp"
#include "platform/clean_text.hpp"
#include "platform/private_files.hpp"

namespace velk::updater {

namespace fs = std::filesystem;

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
    const InstallationLayout& layout = impl_->config.layout;
    const std::string& installDirectory = layout.installDirectory();
    Logger& logger = impl_->logger;
    try {
        if (!fs::exists(installDirectory)) {
            logger.warning("Install directory does not exist, creating it: " + installDirectory);
            fs::create_directories(installDirectory);
            logger.info("Install directory created successfully");
        } else if (!fs::is_directory(installDirectory)) {
            logger.error("Install path exists but is not a directory: " + installDirectory);
            return false;
        }
        fs::create_directories(layout.backupDirectory());
        std::string error;
        if (!platform::preparePrivateFolder(layout.downloadDirectory(), error)) {
            logger.error("Failed to prepare the download folder: " + error);
            return false;
        }
        logger.info("FileUpdater initialized successfully");
        logger.info("Install directory: " + installDirectory);
        return true;
    } catch (const std::exception& error) {
        logger.error(std::string("Failed to initialize FileUpdater: ") + error.what());
        return false;
    }
}

void FileUpdater::setPatchesAllowed(bool allowed) { impl_->config.usePatches = allowed; }

void FileUpdater::shutdown() {
    impl_->cancelRequested.store(true);
    impl_->logger.info("FileUpdater shutting down");
}

bool FileUpdater::hasEnoughDiskSpace(std::uint64_t requiredBytes) {
    try {
        return fs::space(impl_->config.layout.installDirectory()).available >= requiredBytes;
    } catch (const std::exception& error) {
        impl_->logger.warning(std::string("Failed to check disk space: ") + error.what());
        return true;
    }
}

}  // namespace velk::updater
