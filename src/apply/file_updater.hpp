#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "delivery/retry.hpp"
#include "http/http_client.hpp"
#include "installation/layout.hpp"
#include "logging/logger.hpp"
#include "platform/memory_block.hpp"
#include "release/manifest.hpp"

namespace velk::updater {

struct FileUpdaterConfig {
    InstallationLayout layout;  // every folder and file name the updater writes
    bool createBackups = true;
    bool verifyAfterUpdate = true;
    bool useStaging = true;
    bool deleteTempAfterInstall = true;
    std::vector<std::string> baseUrls;  // tried in order for every file
    bool tryArchiveFirst = true;
    std::uint32_t maxRetries = 3;  // further attempts of a transient failure, per source
    TransferPolicy transfer;      // waits, their budget and the speed floor (its retries set above)
    // How long a replace or backup is tried again while another process holds the file.
    std::chrono::milliseconds inUseWindow{10000};
    // Whether a listed patch against the installed copy is tried before the whole file.
    bool usePatches = true;
};

struct UpdateProgress {
    std::uint64_t totalFiles = 0;
    std::uint64_t completedFiles = 0;
    std::uint64_t totalBytes = 0;
    std::uint64_t downloadedBytes = 0;
    std::int32_t percentComplete = 0;
    std::string currentOperation;
    std::string currentFile;
    std::chrono::system_clock::time_point startTime{};
};

using ProgressCallback = std::function<void(const UpdateProgress&)>;

struct FileUpdateResult {
    FileUpdateResult() = default;
    FileUpdateResult(bool success, std::string errorMessage, std::string filePath)
        : success(success), errorMessage(std::move(errorMessage)), filePath(std::move(filePath)) {}

    bool success = false;
    std::string errorMessage;
    std::string filePath;
    std::uint64_t bytesDownloaded = 0;
    std::uint64_t downloadTimeMs = 0;
    std::uint64_t installTimeMs = 0;
};

// The console progress line: "\r[NN%] operation: file", finished by a line end at 100%.
void printProgress(const UpdateProgress& progress);

// Brings individual files on disk into line with the manifest: checks the installed
// copy, downloads with mirror and archive fallback, verifies, backs up, stages and
// installs. Uses the caller's HTTP client and logger.
class FileUpdater {
public:
    FileUpdater(const FileUpdaterConfig& config, HttpClient& httpClient, Logger& logger);
    ~FileUpdater();
    FileUpdater(const FileUpdater&) = delete;
    FileUpdater& operator=(const FileUpdater&) = delete;

    // Creates the installation, backup and download folders as needed.
    bool initialize();
    // Stops a running or later updateFiles before its next file. Safe from any thread.
    void shutdown();
    // Patches are for updates from an older release: a forced run or the repair of a damaged
    // copy takes whole files.
    void setPatchesAllowed(bool allowed);

    // Checks every file of the manifest and updates those that are not current.
    std::vector<FileUpdateResult> updateFiles(const Manifest& manifest, ProgressCallback callback);
    // Removes product downloads an interrupted run left in the download folder.
    bool purgeTempFiles();

    // Backs up, stages and puts a verified download in place of the entry's target.
    FileUpdateResult installFile(const ManifestFile& file, const std::string& downloadedPath,
                                 FileUpdateResult downloadResult);
    // Whether a downloaded file has the expected SHA-256, with a report of any difference.
    bool verifyFileIntegrity(const std::string& path, const std::string& expectedSha256);
    bool hasEnoughDiskSpace(std::uint64_t requiredBytes);
    // Whether the installation's and the download folder's volumes hold every copy that
    // updating these files makes (staging copies, downloads, unpacked archives).
    bool hasRoomFor(const std::vector<ManifestFile>& downloads);

private:
    // The steps of one file: the check of the installed copy, then download, verification
    // and installation.
    bool checkFileCurrent(const ManifestFile& file);
    FileUpdateResult updateFile(const ManifestFile& file);
    FileUpdateResult downloadFile(const ManifestFile& file);
    // The listed patch whose base is the installed copy, when patches are allowed; `base`
    // is left viewing the installed copy, hashed once and kept as the patch's prefix.
    const ManifestPatch* patchFor(const ManifestFile& file, platform::MappedFile& base);

    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace velk::updater
