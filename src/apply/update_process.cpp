#include <chrono>
#include <filesystem>
#include <vector>

#include "apply/update_client.hpp"
#include "delivery/download.hpp"
#include "delivery/file_check.hpp"
#include "installation/product_files.hpp"
#include "installation/version_record.hpp"
#include "release/version_decision.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

std::string yesNo(bool value) { return value ? "YES" : "NO"; }

// The installed version checked once more against the target, right before files change.
bool targetVersionAllowed(Logger& logger, const std::string& targetVersion, bool allowDowngrades) {
    logger.info("Validating version compatibility...");
    const ValidationResult validation = validateVersion(getInstalledVersion(), targetVersion, allowDowngrades);
    if (!validation.valid) {
        logger.error("Version validation failed: " + validation.message);
        logger.error("Current configuration allows downgrades: " + yesNo(allowDowngrades));
        logger.warning("Use --force flag to override version compatibility checks if needed");
        return false;
    }
    logger.info("Version validation successful: " + validation.message);
    return true;
}

// Reports every file of phase 1; true when none failed.
bool allUpdated(Logger& logger, const std::vector<FileUpdateResult>& results) {
    int succeeded = 0;
    int failed = 0;
    for (const auto& result : results) {
        if (result.success) {
            ++succeeded;
            logger.info("[OK] Updated: " + result.filePath);
        } else {
            ++failed;
            logger.error("[FAILED] Failed: " + result.filePath + " - " + result.errorMessage);
        }
    }
    logger.info("Update results: " + std::to_string(succeeded) + " successful, " + std::to_string(failed) + " failed");
    if (failed == 0) return true;
    logger.error("Update failed due to file update failures");
    return false;
}

void recordNewVersion(Logger& logger, const Manifest& manifest) {
    if (setInstalledVersion(manifest.version, manifest.build_number)) {
        logger.info("Updated registry with new version: " + manifest.version +
                    (manifest.build_number.empty() ? "" : " (build " + manifest.build_number + ")"));
    } else {
        logger.warning("Failed to update registry with new version information");
    }
}

}  // namespace

bool UpdateClient::performUpdate(Manifest manifest) {
    const auto startedAt = std::chrono::duration_cast<std::chrono::seconds>(
        std::chrono::system_clock::now().time_since_epoch());
    logger.info("=== Starting update process for version: " + manifest.version + " ===");
    logger.info("Update started at: " + std::to_string(startedAt.count()));
    logger.info("Processing " + std::to_string(manifest.files.size()) + " files that need updating");

    cleanupStagingFiles();
    cleanupTempFiles();
    if (!fileUpdater.purgeTempFiles()) {
        logger.warning("FileUpdater temp cleanup had issues, but continuing with update");
    }

    if (!targetVersionAllowed(logger, manifest.version, manifestVerifier.config().allowDowngrades)) return false;
    executeUpdateSequence(manifest, true);

    // Phase 1 takes the ordinary files in the manifest itself; phase 2 the updaters' libraries.
    std::vector<ManifestFile> regularFiles;
    std::vector<ManifestFile> selfUpdateFiles;
    for (auto& file : manifest.files) {
        if (product::isUpdaterExecutable(file.name)) continue;
        (selfUpdater->isUpdaterFile(file) ? selfUpdateFiles : regularFiles).push_back(std::move(file));
    }
    manifest.files = std::move(regularFiles);

    if (!manifest.files.empty()) {
        logger.info("=== Phase 1: Updating VELK components (" + std::to_string(manifest.files.size()) +
                    " files) ===");
        // A forced run (the verifier ignores the rollout share only then), or the repair of
        // the installed release, takes whole files.
        const ManifestVerifierConfig& installed = manifestVerifier.config();
        fileUpdater.setPatchesAllowed(!installed.ignoreRollout &&
                                      compareRelease(manifest.version, manifest.build_number, installed.currentVersion,
                                                     installed.currentBuildNumber) != ReleaseOrder::Same);
        if (!allUpdated(logger, fileUpdater.updateFiles(manifest, printProgress))) return false;
    }

    executeUpdateSequence(manifest, false);
    cleanupBackupFiles();
    // The registry changes only once every file of phase 1 is in place.
    recordNewVersion(logger, manifest);

    if (!selfUpdateFiles.empty()) {
        logger.info("=== Phase 2: Preparing self-update bootstrap (" + std::to_string(selfUpdateFiles.size()) +
                    " files) ===");
        logger.info("Self-update files cannot be replaced while running - using bootstrap approach");
        for (const auto& file : selfUpdateFiles) downloadSelfUpdateFile(file);
    }
    logger.info("Update completed successfully!");
    return true;
}

void UpdateClient::downloadSelfUpdateFile(const ManifestFile& file) {
    logger.info("Downloading self-update file: " + file.name);
    const std::string tempPath = layout.selfUpdateFile(file.name);
    logger.info("Downloading to temporary location: " + tempPath);
    // Written beside the final name and renamed once verified, so the windowed updater never
    // finds a partial or unverified file under the name it swaps in.
    const std::string partialPath = InstallationLayout::partialFile(tempPath);
    try {
        const HttpResponse response = fetchFile(httpClient, layout, getUpdateFileUrl(file), partialPath, file.size);
        if (!fs::exists(partialPath)) {
            logger.error("Failed to create temp file: " + tempPath);
            return;
        }
        if (response.statusCode != 200) {
            fs::remove(partialPath);
            logger.error("Failed to download " + file.name + ": HTTP " + std::to_string(response.statusCode));
            return;
        }
        if (!verifyTempFile(partialPath, file)) {
            logger.error("Downloaded file verification failed: " + file.name);
            fs::remove(partialPath);
            return;
        }
        fs::rename(partialPath, tempPath);
        logger.info("Successfully downloaded and verified: " + file.name + " -> " +
                    fs::path(tempPath).filename().string());
    } catch (const std::exception& error) {
        logger.error("Exception downloading " + file.name + ": " + error.what());
    }
}

bool UpdateClient::verifyTempFile(const std::string& tempPath, const ManifestFile& file) {
    try {
        const FileCheck check = checkFile(tempPath, file, DigestCase::IgnoreCase);
        switch (check.state) {
            case FileState::Current:
                logger.debug("File verification passed for: " + tempPath);
                return true;
            case FileState::Missing:
                logger.error("Temp file does not exist: " + tempPath);
                return false;
            case FileState::SizeMismatch:
                logger.error("File size mismatch for temp file: expected " + std::to_string(file.size) +
                             ", actual " + std::to_string(check.actualSize));
                return false;
            case FileState::HashFailed:
                logger.error("Failed to calculate SHA256 for tmp file: " + check.error);
                return false;
            case FileState::HashMismatch:
                logger.error("SHA256 mismatch for temp file: expected " + file.sha256 + ", actual " +
                             check.actualSha256);
                return false;
        }
        return false;
    } catch (const std::exception& error) {
        logger.error(std::string("Exception during file verification: ") + error.what());
        return false;
    }
}

}  // namespace velk::updater
