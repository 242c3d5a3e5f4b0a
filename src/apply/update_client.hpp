#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "apply/file_updater.hpp"
#include "apply/self_updater.hpp"
#include "http/http_client.hpp"
#include "installation/layout.hpp"
#include "logging/logger.hpp"
#include "release/manifest.hpp"
#include "release/manifest_verifier.hpp"

namespace velk::updater {

// Takes a manifest from intake through verification, the version verdict and the
// per-file integrity pass to the decision, runs the update, installs the service and
// driver on request and removes leftovers. One per run, used from the main thread.
class UpdateClient {
public:
    UpdateClient(const HttpConfig& httpConfig, const FileUpdaterConfig& fileUpdaterConfig,
                 const ManifestVerifierConfig& verifierConfig, const SelfUpdaterConfig& selfUpdaterConfig,
                 Logger& logger);
    ~UpdateClient();
    UpdateClient(const UpdateClient&) = delete;
    UpdateClient& operator=(const UpdateClient&) = delete;

    // Starts the HTTP client, then the file updater.
    bool initialize();

    // Manifest intake: downloaded or read from a file, then processed.
    bool checkForUpdates(const std::string& manifestUrl);
    bool checkForUpdatesFromFile(const std::string& manifestPath);
    // Verifies the manifest, checks every file, decides what to do and does it.
    bool processManifest(const std::string& manifestJson);
    // Whether a fetched updater file has the entry's size and SHA-256, with what is wrong.
    bool verifyTempFile(const std::string& tempPath, const ManifestFile& file);

    // Whether the service manager knows the service (or driver).
    bool serviceExists(const std::string& serviceName);
    // Registers the product's service and installs its driver package where missing.
    bool installServices();

    // Empties and removes the backup folder.
    void cleanupBackupFiles();
    // Removes leftover staging copies and downloads, then stops the file updater.
    void finalCleanup();

private:
    void cleanupStagingFiles();
    void cleanupTempFiles();
    // Runs a decided update; the manifest lists only the files that need a download.
    bool performUpdate(Manifest manifest);
    // Manifests carry no update steps, so a sequence is its headline alone.
    bool executeUpdateSequence(const Manifest& manifest, bool preUpdate);
    std::string getUpdateFileUrl(const ManifestFile& file) const;
    // Phase 2: fetches an updater file beside its target under the name + "_temp".
    void downloadSelfUpdateFile(const ManifestFile& file);

    HttpClient httpClient;
    ManifestVerifier manifestVerifier;
    FileUpdater fileUpdater;
    Logger& logger;
    InstallationLayout layout;
    std::uint64_t maxManifestBytes;
    std::unique_ptr<SelfUpdater> selfUpdater;
};

}  // namespace velk::updater
