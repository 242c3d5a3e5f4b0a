#include <algorithm>
#include <filesystem>
#include <fstream>

#include "apply/file_updater.hpp"
#include "apply/file_updater_impl.hpp"
#include "crypto/crypto_utils.hpp"
#include "delivery/file_check.hpp"
#include "platform/memory_block.hpp"
#include "platform/sha256.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

// A view of the file's bytes in `bytes` and its SHA-256 in lower-case hexadecimal; empty
// when it cannot be read.
std::string viewAndHash(const fs::path& path, platform::MappedFile& bytes) {
    std::string ignored;
    if (!bytes.open(path.string(), ignored)) return "";
    const auto digest = platform::sha256Of(bytes.data(), bytes.size());
    return digest ? CryptoUtils::toHex(std::vector<std::uint8_t>(digest->begin(), digest->end())) : "";
}

}  // namespace

// Counts every copy an update makes on the installation's volume, which holds the download
// folder too: the new files (each download becomes its staging copy), the backups of the
// installed copies they replace, and the largest archive beside the entry taken out of it.
bool FileUpdater::hasRoomFor(const std::vector<ManifestFile>& downloads) {
    const InstallationLayout& layout = impl_->config.layout;
    std::uint64_t installBytes = 0;
    std::uint64_t largest = 0;
    for (const auto& file : downloads) {
        installBytes += file.size;
        largest = std::max<std::uint64_t>(largest, file.size);
        std::error_code absent;
        const std::uintmax_t installed = fs::file_size(layout.targetFile(file.target_path), absent);
        if (impl_->config.createBackups && file.backup && !absent) installBytes += installed;
    }
    return hasEnoughDiskSpace(installBytes + largest);
}

const ManifestPatch* FileUpdater::patchFor(const ManifestFile& file, platform::MappedFile& base) {
    if (!impl_->config.usePatches || file.patches.empty()) return nullptr;
    try {
        const InstallationLayout& layout = impl_->config.layout;
        const fs::path installed = layout.targetFile(file.target_path);
        requireInside(layout.installDirectory(), installed);
        if (!fs::is_regular_file(installed)) return nullptr;
        // A copy too large to be patched is not even read.
        if (patchWindowLog(fs::file_size(installed), file.size) > kMaxPatchWindowLog) return nullptr;
        const std::string installedSha256 = viewAndHash(installed, base);
        for (const auto& patch : file.patches) {
            if (sameDigestIgnoringCase(patch.from_sha256, installedSha256)) return &patch;
        }
        base.close();
    } catch (const std::exception& error) {
        impl_->logger.warning("Cannot examine " + file.name + " for a patch: " + error.what());
    }
    return nullptr;
}

FileUpdateResult FileUpdater::downloadFile(const ManifestFile& file) {
    Delivery delivery;
    platform::MappedFile base;
    if (const ManifestPatch* patch = patchFor(file, base)) {
        delivery = impl_->downloader.downloadPatched(file, *patch, {base.data(), base.size()});
        base.close();  // not held while a whole file downloads
        if (!delivery.success) {
            impl_->logger.warning("Patch for " + file.name + " not used (" + delivery.errorMessage +
                                  "); downloading the whole file");
        }
    }
    if (!delivery.success) delivery = impl_->downloader.download(file);
    FileUpdateResult result(delivery.success, delivery.errorMessage, delivery.path);
    result.bytesDownloaded = delivery.bytesDownloaded;
    result.downloadTimeMs = delivery.downloadTimeMs;
    return result;
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

    if (!hasRoomFor(downloads)) {
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
