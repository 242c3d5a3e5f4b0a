#include <filesystem>
#include <vector>

#include "client/update_client.hpp"
#include "files/file_check.hpp"
#include "install/product_files.hpp"
#include "install/version_record.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

struct IntegrityCounts {
    int missing = 0;
    int corrupted = 0;
    int current = 0;
};

// What the integrity pass found for one entry: empty when the local copy is correct.
struct FileStatus {
    std::string status;
};

std::string statusOf(FileState state) {
    switch (state) {
        case FileState::Current:
            return "";
        case FileState::Missing:
            return "missing";
        case FileState::SizeMismatch:
            return "size mismatch";
        case FileState::HashFailed:
            return "hash calculation failed";
        case FileState::HashMismatch:
            return "hash mismatch";
    }
    return "error during check";
}

// Checks one ordinary entry against the disk; wrong copies are deleted. The digest is
// compared exactly: an upper-case manifest digest counts as a mismatch here.
FileStatus checkEntry(Logger& logger, const FileUpdaterConfig& fileUpdaterConfig, const fs::path& path,
                      const ManifestFile& file, IntegrityCounts& counts) {
    try {
        requireInside(fileUpdaterConfig.installDirectory, path);
        const FileCheck check = checkFile(path, file, DigestCase::Exact);
        if (check.state == FileState::Missing) {
            logger.info("File missing: " + file.name);
            ++counts.missing;
        } else if (check.current()) {
            logger.debug("File integrity OK: " + file.name);
            ++counts.current;
        } else {
            discardWrongCopy(logger, path, file, check,
                             "File hash mismatch for " + file.name + ": expected " + file.sha256.substr(0, 16) +
                                 "..., actual " + check.actualSha256.substr(0, 16) + "...");
            ++counts.corrupted;
        }
        return {statusOf(check.state)};
    } catch (const std::exception& error) {
        logger.warning("Error checking file " + file.name + ": " + error.what());
        ++counts.corrupted;
        return {"error during check"};
    }
}

void reportManifest(Logger& logger, const Manifest& manifest) {
    logger.info("Update manifest parsed and verified successfully");
    logger.info("Manifest version: " + manifest.version);
    logger.info("Manifest build: " + manifest.build_number);
    logger.info("Files in manifest: " + std::to_string(manifest.files.size()));
    for (const auto& file : manifest.files) {
        logger.debug("Manifest file: " + file.name + " (" + std::to_string(file.size) +
                     " bytes, SHA256: " + file.sha256.substr(0, 16) + "...)");
    }
}

}  // namespace

bool UpdateClient::processManifest(const std::string& manifestJson) {
    logger.info("Processing manifest JSON (" + std::to_string(manifestJson.size()) + " bytes)");
    const VerificationResult verification = manifestVerifier.parseAndVerify(manifestJson);
    if (!verification.valid || !verification.manifest) {
        logger.error("Manifest verification failed: " + verification.errorMessage);
        logger.debug("Manifest JSON content: " + manifestJson.substr(0, 500));
        return false;
    }
    const Manifest& manifest = *verification.manifest;
    reportManifest(logger, manifest);
    const bool versionUpdateAvailable = manifestVerifier.analyzeVersionComparison();

    logger.info("=== File Integrity Check ===");
    logger.info("Checking file integrity to determine which files need updating");
    std::vector<ManifestFile> filesToUpdate;
    std::vector<ManifestFile> currentFiles;
    IntegrityCounts counts;
    for (const auto& file : manifest.files) {
        if (product::isUpdaterExecutable(file.name)) {
            logger.info("Skipping self-update file (intentional): " + file.name);
            continue;
        }
        const fs::path path = fs::path(fileUpdaterConfig.installDirectory) / file.target_path;
        const FileStatus check = checkEntry(logger, fileUpdaterConfig, path, file, counts);
        if (check.status.empty()) {
            logger.debug("File " + file.name + " is already current - skipping download");
            currentFiles.push_back(file);
        } else {
            logger.debug("File " + file.name + " needs updating (" + check.status + ")");
            filesToUpdate.push_back(file);
        }
    }

    const bool repairNeeded = counts.missing > 0 || counts.corrupted > 0;
    logger.info("=== FILE STATUS SUMMARY ===");
    logger.info("Files already current: " + std::to_string(counts.current));
    logger.info("Files needing update: " + std::to_string(filesToUpdate.size()));
    logger.info("Missing files: " + std::to_string(counts.missing));
    logger.info("Corrupted files: " + std::to_string(counts.corrupted));

    if (!versionUpdateAvailable && !repairNeeded) {
        logger.info("No update required - already at latest version (" + manifest.version +
                    ") with all files current");
        return true;
    }
    if (!repairNeeded) {
        logger.info("Update available - proceeding with update from current version to " + manifest.version);
        logger.info("No files need updating - all files are already current");
        logger.info("Updating version information in registry (metadata-only update)");
        if (setInstalledVersion(manifest.version, manifest.build_number)) {
            logger.info("Registry updated with new version: " + manifest.version + " (build " +
                        manifest.build_number + ")");
        } else {
            logger.warning("Failed to update registry with new version");
        }
        return true;
    }

    logger.info("=== UPDATE REQUIRED ===");
    logger.info(versionUpdateAvailable ? "Version update available AND file repair needed"
                                       : "File repair needed despite same version");
    logger.info("Will download " + std::to_string(filesToUpdate.size()) + " files (" +
                std::to_string(currentFiles.size()) + " already current, skipped)");
    logger.info("Update available - proceeding with update from current version to " + manifest.version);
    Manifest reduced = manifest;
    reduced.files = std::move(filesToUpdate);
    return performUpdate(reduced);
}

}  // namespace velk::updater
