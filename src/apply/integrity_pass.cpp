#include <algorithm>
#include <atomic>
#include <exception>
#include <filesystem>
#include <functional>
#include <optional>
#include <thread>
#include <vector>

#include "apply/update_client.hpp"
#include "apply/wrong_copy.hpp"
#include "delivery/file_check.hpp"
#include "installation/product_files.hpp"
#include "installation/version_record.hpp"

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

// The pure part of one entry's check: containment, size and digest, with what it threw
// kept for the pass to rethrow at the entry's turn.
struct PrecomputedCheck {
    FileCheck check;
    std::exception_ptr failure;
};

PrecomputedCheck precheck(const InstallationLayout& layout, const ManifestFile& file) {
    PrecomputedCheck result;
    try {
        const fs::path path = layout.targetFile(file.target_path);
        requireInside(layout.installDirectory(), path);
        result.check = checkFile(path, file, DigestCase::Exact);
    } catch (...) {
        result.failure = std::current_exception();
    }
    return result;
}

// Hashing is bound by the processor (and the disk): a few threads use the cores without
// competing for the disk; each hash streams its file, so memory stays small.
constexpr unsigned kMaxCheckThreads = 4;

// Runs job(0) .. job(count - 1) on up to kMaxCheckThreads threads; inline for one job.
void runInParallel(std::size_t count, const std::function<void(std::size_t)>& job) {
    const unsigned cores = std::max(1u, std::thread::hardware_concurrency());
    const std::size_t threads = std::min<std::size_t>({count, cores, kMaxCheckThreads});
    if (threads <= 1) {
        for (std::size_t i = 0; i < count; ++i) job(i);
        return;
    }
    std::atomic<std::size_t> next{0};
    const auto work = [&] {
        for (std::size_t i = next++; i < count; i = next++) job(i);
    };
    std::vector<std::thread> pool;
    for (std::size_t t = 1; t < threads; ++t) pool.emplace_back(work);
    work();
    for (auto& thread : pool) thread.join();
}

// Checks every ordinary entry at once (the pass changes nothing on disk, so the order does
// not matter); an empty slot is left for the updaters' executables.
std::vector<std::optional<PrecomputedCheck>> precheckAll(const InstallationLayout& layout,
                                                         const std::vector<ManifestFile>& files) {
    std::vector<std::size_t> ahead;
    for (std::size_t i = 0; i < files.size(); ++i) {
        if (!product::isUpdaterExecutable(files[i].name)) ahead.push_back(i);
    }
    std::vector<std::optional<PrecomputedCheck>> checks(files.size());
    runInParallel(ahead.size(), [&](std::size_t job) {
        checks[ahead[job]] = precheck(layout, files[ahead[job]]);
    });
    return checks;
}

// Reports one ordinary entry's check; wrong copies stay until replaced. The digest is compared
// exactly: an upper-case manifest digest counts as a mismatch here.
FileStatus checkEntry(Logger& logger, const fs::path& path, const ManifestFile& file, const PrecomputedCheck& pre,
                      IntegrityCounts& counts) {
    try {
        if (pre.failure) std::rethrow_exception(pre.failure);
        const FileCheck& check = pre.check;
        if (check.state == FileState::Missing) {
            logger.info("File missing: " + file.name);
            ++counts.missing;
        } else if (check.current()) {
            logger.debug("File integrity OK: " + file.name);
            ++counts.current;
        } else {
            reportWrongCopy(logger, path, file, check,
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

// What the integrity pass found: the entries to download, and how many of each kind.
struct IntegrityReport {
    std::vector<ManifestFile> filesToUpdate;
    IntegrityCounts counts;

    bool repairNeeded() const { return counts.missing > 0 || counts.corrupted > 0; }
};

// Checks every entry but the updaters' executables against the installation. Hashing runs
// ahead on several threads; reporting follows in manifest order.
IntegrityReport checkIntegrity(Logger& logger, const InstallationLayout& layout, const std::vector<ManifestFile>& files) {
    logger.info("=== File Integrity Check ===");
    logger.info("Checking file integrity to determine which files need updating");
    IntegrityReport report;
    const auto prechecked = precheckAll(layout, files);
    for (std::size_t i = 0; i < files.size(); ++i) {
        const ManifestFile& file = files[i];
        if (product::isUpdaterExecutable(file.name)) {
            logger.info("Skipping self-update file (intentional): " + file.name);
            continue;
        }
        const FileStatus check = checkEntry(logger, layout.targetFile(file.target_path), file, *prechecked[i],
                                            report.counts);
        if (check.status.empty()) {
            logger.debug("File " + file.name + " is already current - skipping download");
        } else {
            logger.debug("File " + file.name + " needs updating (" + check.status + ")");
            report.filesToUpdate.push_back(file);
        }
    }
    logger.info("=== FILE STATUS SUMMARY ===");
    logger.info("Files already current: " + std::to_string(report.counts.current));
    logger.info("Files needing update: " + std::to_string(report.filesToUpdate.size()));
    logger.info("Missing files: " + std::to_string(report.counts.missing));
    logger.info("Corrupted files: " + std::to_string(report.counts.corrupted));
    return report;
}

// A newer release whose files are all in place already: only the record changes.
void recordVersionOnly(Logger& logger, const Manifest& manifest) {
    logger.info("Update available - proceeding with update from current version to " + manifest.version);
    logger.info("No files need updating - all files are already current");
    logger.info("Updating version information in registry (metadata-only update)");
    if (setInstalledVersion(manifest.version, manifest.build_number)) {
        logger.info("Registry updated with new version: " + manifest.version + " (build " + manifest.build_number +
                    ")");
    } else {
        logger.warning("Failed to update registry with new version");
    }
}

}  // namespace

bool UpdateClient::processManifest(const std::string& manifestJson) {
    logger.info("Processing manifest JSON (" + std::to_string(manifestJson.size()) + " bytes)");
    VerificationResult verification = manifestVerifier.parseAndVerify(manifestJson);
    if (!verification.valid || !verification.manifest) {
        logger.error("Manifest verification failed: " + verification.errorMessage);
        logger.debug("Manifest JSON content: " + manifestJson.substr(0, 500));
        return false;
    }
    Manifest& manifest = *verification.manifest;
    reportManifest(logger, manifest);
    const bool versionUpdateAvailable = manifestVerifier.analyzeVersionComparison();
    // A release held back for this installation changes nothing, not even the files.
    const std::string held = manifestVerifier.rolloutHold();
    if (!held.empty()) {
        logger.info(held);
        return true;
    }
    IntegrityReport report = checkIntegrity(logger, layout, manifest.files);

    if (!versionUpdateAvailable && !report.repairNeeded()) {
        logger.info("No update required - already at latest version (" + manifest.version +
                    ") with all files current");
        return true;
    }
    if (!report.repairNeeded()) {
        recordVersionOnly(logger, manifest);
        return true;
    }

    logger.info("=== UPDATE REQUIRED ===");
    logger.info(versionUpdateAvailable ? "Version update available AND file repair needed"
                                       : "File repair needed despite same version");
    logger.info("Will download " + std::to_string(report.filesToUpdate.size()) + " files (" +
                std::to_string(report.counts.current) + " already current, skipped)");
    logger.info("Update available - proceeding with update from current version to " + manifest.version);
    manifest.files = std::move(report.filesToUpdate);
    return performUpdate(std::move(manifest));
}

}  // namespace velk::updater
