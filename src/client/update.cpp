#include <chrono>
#include <filesystem>
#include <fstream>
#include <vector>

#include "client/update_client.hpp"
#include "crypto/crypto_utils.hpp"
#include "files/file_checks.hpp"
#include "install/version_record.hpp"
#include "platform/process.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

std::string yesNo(bool value) { return value ? "YES" : "NO"; }

}  // namespace

bool UpdateClient::performUpdate(const Manifest& manifest) {
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

    logger.info("Validating version compatibility...");
    const bool allowDowngrades = manifestVerifier.config().allowDowngrades;
    const ValidationResult validation = validateVersion(manifest.version, allowDowngrades);
    if (!validation.valid) {
        logger.error("Version validation failed: " + validation.message);
        logger.error("Current configuration allows downgrades: " + yesNo(allowDowngrades));
        logger.warning("Use --force flag to override version compatibility checks if needed");
        return false;
    }
    logger.info("Version validation successful: " + validation.message);
    executeUpdateSequence(manifest, true);

    std::vector<ManifestFile> regularFiles;
    std::vector<ManifestFile> selfUpdateFiles;
    for (const auto& file : manifest.files) {
        if (isSelfUpdateName(file.name)) continue;
        (selfUpdater->isUpdaterFile(file) ? selfUpdateFiles : regularFiles).push_back(file);
    }

    if (!regularFiles.empty()) {
        logger.info("=== Phase 1: Updating VELK components (" + std::to_string(regularFiles.size()) + " files) ===");
        Manifest phaseOne = manifest;
        phaseOne.files = regularFiles;
        const auto results = fileUpdater.updateFiles(phaseOne, [](const UpdateProgress& progress) { printProgress(progress); });
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
        if (failed > 0) {
            logger.error("Update failed due to file update failures");
            return false;
        }
    }

    executeUpdateSequence(manifest, false);
    cleanupBackupFiles();
    // The registry changes only once every file of phase 1 is in place.
    if (setInstalledVersion(manifest.version, manifest.build_number)) {
        logger.info("Updated registry with new version: " + manifest.version +
                    (manifest.build_number.empty() ? "" : " (build " + manifest.build_number + ")"));
    } else {
        logger.warning("Failed to update registry with new version information");
    }

    if (!selfUpdateFiles.empty()) {
        logger.info("=== Phase 2: Preparing self-update bootstrap (" + std::to_string(selfUpdateFiles.size()) + " files) ===");
        logger.info("Self-update files cannot be replaced while running - using bootstrap approach");
        for (const auto& file : selfUpdateFiles) downloadSelfUpdateFile(file);
    }
    logger.info("Update completed successfully!");
    return true;
}

void UpdateClient::downloadSelfUpdateFile(const ManifestFile& file) {
    logger.info("Downloading self-update file: " + file.name);
    const std::string tempName = file.name + "_temp";
    const std::string tempPath = platform::joinPath(fileUpdaterConfig.installDirectory, tempName);
    logger.info("Downloading to temporary location: " + tempPath);
    try {
        const HttpResponse response = httpClient.get(getUpdateFileUrl(file), {});
        if (response.statusCode != 200) {
            logger.error("Failed to download " + file.name + ": HTTP " + std::to_string(response.statusCode));
            return;
        }
        std::ofstream out(tempPath, std::ios::binary | std::ios::trunc);
        if (!out.is_open()) {
            logger.error("Failed to create temp file: " + tempPath);
            return;
        }
        out.write(response.body.data(), static_cast<std::streamsize>(response.body.size()));
        out.close();
        if (!verifyTempFile(tempPath, file)) {
            logger.error("Downloaded file verification failed: " + file.name);
            fs::remove(tempPath);
            return;
        }
        logger.info("Successfully downloaded and verified: " + file.name + " -> " + tempName);
    } catch (const std::exception& error) {
        logger.error("Exception downloading " + file.name + ": " + error.what());
    }
}

bool UpdateClient::verifyTempFile(const std::string& tempPath, const ManifestFile& file) {
    try {
        if (!fs::exists(tempPath)) {
            logger.error("Temp file does not exist: " + tempPath);
            return false;
        }
        const std::uintmax_t actual = fs::file_size(tempPath);
        if (actual != file.size) {
            logger.error("File size mismatch for temp file: expected " + std::to_string(file.size) + ", actual " +
                         std::to_string(actual));
            return false;
        }
        const CryptoResult digest = CryptoUtils::sha256File(tempPath);
        if (!digest.success) {
            logger.error("Failed to calculate SHA256 for tmp file: " + digest.error);
            return false;
        }
        const std::string hex = CryptoUtils::toHex(digest.data);
        if (!sameDigestIgnoringCase(hex, file.sha256)) {
            logger.error("SHA256 mismatch for temp file: expected " + file.sha256 + ", actual " + hex);
            return false;
        }
        logger.debug("File verification passed for: " + tempPath);
        return true;
    } catch (const std::exception& error) {
        logger.error(std::string("Exception during file verification: ") + error.what());
        return false;
    }
}

}  // namespace velk::updater
