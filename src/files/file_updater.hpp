#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "http/http_client.hpp"
#include "logging/logger.hpp"
#include "manifest/manifest.hpp"
#include "platform/sha256.hpp"

namespace velk::updater {


struct FileUpdaterConfig {
    std::string installDirectory;
    std::string backupDirectory;
    std::string tempDirectory;
    bool createBackups = true;
    bool verifyAfterUpdate = true;
    bool useStaging = true;
    bool deleteTempAfterInstall = true;
    // Kept with the record; the number of attempts follows from baseUrls alone.
    std::uint64_t maxRetries = 3;
    std::uint64_t maxFileSize = 104857600;
    std::uint64_t timeoutSeconds = 300;
    std::uint32_t retryDelaySeconds = 3;
    std::uint64_t maxConcurrentDownloads = 10;
    std::vector<std::string> baseUrls;  // tried in order for every file
    bool tryArchiveFirst = true;
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

    // Creates the installation, backup and temporary directories as needed.
    bool initialize();
    // Stops a running or later updateFiles before its next file. Safe from any thread.
    void shutdown();

    // Checks every file of the manifest and updates those that are not current.
    std::vector<FileUpdateResult> updateFiles(const Manifest& manifest, ProgressCallback callback);
    // Removes product downloads an interrupted run left in the temporary directory.
    bool purgeTempFiles();

    // The steps of one file, each usable on its own.
    FileUpdateResult updateFile(const ManifestFile& file);
    FileUpdateResult downloadFile(const ManifestFile& file);
    FileUpdateResult installFile(const ManifestFile& file, const std::string& downloadedPath,
                                 FileUpdateResult downloadResult);
    bool checkFileCurrent(const ManifestFile& file);
    bool verifyFileIntegrity(const std::string& path, const std::string& expectedSha256);

    std::string getTempPath(const ManifestFile& file) const;
    std::string getBackupPath(const ManifestFile& file) const;
    bool hasEnoughDiskSpace(std::uint64_t requiredBytes);
    // Whether the installation's and the temporary folder's volumes hold every copy that
    // updating these files makes (staging copies, downloads, unpacked archives).
    bool hasRoomFor(const std::vector<ManifestFile>& downloads);

    // Streams `url` into `path`, replacing it: the one transfer every downloaded file goes
    // through. An error page lands in the file too; the status is the caller's to judge. A
    // body longer than `maxBytes` (when above 0) fails the transfer as soon as it passes it.
    // `digest`, when given, is fed every byte that reaches the file.
    HttpResponse fetch(const std::string& url, const std::string& path, std::uint64_t maxBytes,
                       platform::Sha256* digest = nullptr);
    static bool isUrl(const std::string& text);

    std::uint64_t successfulCount() const;
    std::uint64_t failedCount() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace velk::updater
