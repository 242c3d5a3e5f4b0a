#include <cctype>
#include <filesystem>

#include "crypto/crypto_utils.hpp"
#include "files/file_updater.hpp"
#include "files/file_checks.hpp"
#include "files/file_updater_impl.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

std::string differences(const std::string& expected, const std::string& actual) {
    std::string text;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(expected[i])) != std::tolower(static_cast<unsigned char>(actual[i]))) {
            text += "Position " + std::to_string(i) + ": expected '" + expected[i] + "', got '" + actual[i] + "' ";
        }
    }
    return text;
}

}  // namespace

bool FileUpdater::checkFileCurrent(const ManifestFile& file) {
    Logger& logger = impl_->logger;
    try {
        const fs::path path = fs::path(impl_->config.installDirectory) / file.target_path;
        if (!fs::exists(path)) {
            logger.debug("File does not exist: " + file.name);
            return false;
        }
        const std::uintmax_t actual = fs::file_size(path);
        if (actual != file.size) {
            logger.info("File size mismatch for " + file.name + ": expected " + std::to_string(file.size) + ", actual " +
                        std::to_string(actual));
            logger.info("Deleting corrupted file to force clean re-download: " + path.string());
            deleteWrongCopy(logger, path, file.name, "corrupted", true);
            return false;
        }
        const CryptoResult digest = CryptoUtils::sha256File(path.string());
        if (!digest.success) {
            logger.warning("Failed to calculate SHA256 for " + file.name + ": " + digest.error);
            logger.info("Deleting file with failed hash calculation: " + path.string());
            deleteWrongCopy(logger, path, file.name, "unverifiable", false);
            return false;
        }
        const std::string hex = CryptoUtils::toHex(digest.data);
        if (sameDigestIgnoringCase(hex, file.sha256)) {
            logger.debug("File " + file.name + " is up to date (SHA256 verified)");
            return true;
        }
        logger.info("File " + file.name + " SHA256 mismatch: expected " + file.sha256.substr(0, 16) + "..., actual " +
                    hex.substr(0, 16) + "...");
        logger.info("Deleting corrupted file to force clean re-download: " + path.string());
        deleteWrongCopy(logger, path, file.name, "hash-mismatched", true);
        return false;
    } catch (const std::exception& error) {
        logger.warning("Error checking file " + file.name + ": " + error.what());
        return false;
    }
}

bool FileUpdater::verifyFileIntegrity(const std::string& path, const std::string& expectedSha256) {
    Logger& logger = impl_->logger;
    logger.info("=== File Integrity Verification ===");
    logger.info("File: " + path);
    logger.info("Expected SHA256: " + expectedSha256);
    try {
        if (!fs::exists(path)) {
            logger.error("File does not exist for verification: " + path);
            return false;
        }
        logger.info("File size: " + std::to_string(fs::file_size(path)) + " bytes");
        const CryptoResult digest = CryptoUtils::sha256File(path);
        if (!digest.success) {
            logger.error("Failed to calculate SHA256 for " + path + ": " + digest.error);
            return false;
        }
        const std::string actual = CryptoUtils::toHex(digest.data);
        logger.info("Actual SHA256: " + actual);
        if (sameDigestIgnoringCase(actual, expectedSha256)) {
            logger.info("[OK] SHA256 verification PASSED");
            return true;
        }
        logger.error("[FAILED] SHA256 verification FAILED");
        logger.error("Hash mismatch details:");
        logger.error("  Expected: " + expectedSha256);
        logger.error("  Actual:   " + actual);
        if (expectedSha256.size() == actual.size()) {
            const std::string text = differences(expectedSha256, actual);
            if (!text.empty()) logger.error("  Differences: " + text);
        } else {
            logger.error("  Length mismatch: expected " + std::to_string(expectedSha256.size()) + " chars, got " +
                         std::to_string(actual.size()) + " chars");
        }
        return false;
    } catch (const std::exception& error) {
        logger.error(std::string("Failed to get file size for verification: ") + error.what());
        return false;
    }
}

FileUpdateResult FileUpdater::updateFile(const ManifestFile& file) {
    Logger& logger = impl_->logger;
    logger.debug("Updating file: " + file.name);
    FileUpdateResult download = downloadFile(file);
    if (!download.success) return download;
    if (impl_->config.verifyAfterUpdate) {
        if (!verifyFileIntegrity(download.filePath, file.sha256)) {
            // Never install what failed verification; a failing removal reaches the caller.
            fs::remove(download.filePath);
            return FileUpdateResult(false, "File integrity check failed", file.target_path);
        }
        logger.debug("File integrity verified: " + file.name);
    }
    const std::string downloaded = download.filePath;
    return installFile(file, downloaded, std::move(download));
}

std::vector<FileUpdateResult> FileUpdater::updateFiles(const Manifest& manifest, ProgressCallback callback) {
    Impl& impl = *impl_;
    std::vector<FileUpdateResult> results;
    std::vector<ManifestFile> downloads;
    for (const auto& file : manifest.files) {
        if (checkFileCurrent(file)) {
            impl.logger.info("File " + file.name + " is already up to date - skipping download");
            results.emplace_back(true, "Skipped - already current", file.target_path);
        } else {
            impl.logger.info("File " + file.name + " needs updating");
            downloads.push_back(file);
        }
    }

    UpdateProgress& progress = impl.progress;
    progress.totalFiles = downloads.size();
    progress.completedFiles = 0;
    progress.totalBytes = 0;
    for (const auto& file : downloads) progress.totalBytes += file.size;
    progress.downloadedBytes = 0;
    progress.startTime = std::chrono::system_clock::now();
    progress.currentOperation = "Preparing update";
    impl.logger.info("Starting file update process for " + std::to_string(downloads.size()) + " files (" +
                     std::to_string(manifest.files.size() - downloads.size()) + " skipped)");

    if (!hasEnoughDiskSpace(progress.totalBytes)) {
        results.emplace_back(false, "Insufficient disk space", "");
        return results;
    }

    for (const auto& file : downloads) {
        if (impl.cancelRequested.load()) {
            impl.logger.info("Update cancelled by user");
            break;
        }
        progress.currentFile = file.name;
        progress.currentOperation = "Downloading " + file.name;
        if (callback) callback(progress);

        FileUpdateResult result = updateFile(file);
        if (result.success) {
            ++impl.successfulCount;
            progress.downloadedBytes += result.bytesDownloaded;
            impl.totalBytesDownloaded += result.bytesDownloaded;
        } else {
            ++impl.failedCount;
            impl.logger.error("Failed to update file " + file.name + ": " + result.errorMessage);
        }
        results.push_back(std::move(result));
        ++progress.completedFiles;
        progress.percentComplete = static_cast<std::int32_t>(progress.completedFiles * 100 / progress.totalFiles);
        ++impl.filesProcessed;
    }

    progress.currentOperation = "Update completed";
    if (callback) callback(progress);
    impl.logger.info("File update completed: " + std::to_string(impl.successfulCount) + " successful, " +
                     std::to_string(impl.failedCount) + " failed");
    return results;
}

}  // namespace velk::updater
