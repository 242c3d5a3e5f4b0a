#pragma once

#include <memory>
#include <string>

#include "files/file_updater.hpp"
#include "http/http_client.hpp"
#include "logging/logger.hpp"
#include "manifest/manifest.hpp"
#include "manifest/manifest_verifier.hpp"
#include "selfupdate/self_updater.hpp"

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
    std::string getUpdateFileUrl(const ManifestFile& file) const;
    void finalCleanup();

    // Verifies the manifest, checks every file and decides what to do.
    bool processManifest(const std::string& manifestJson);
    // Runs a decided update with the files that need a download.
    bool performUpdate(const Manifest& manifest);
    bool verifyTempFile(const std::string& tempPath, const ManifestFile& file);

    bool executeUpdateSequence(const Manifest& manifest, bool preUpdate);
    bool serviceExists(const std::string& serviceName);
    // Registers the product's service and installs its driver package where missing.
    bool installServices();

    void cleanupBackupFiles();
    void cleanupStagingFiles();
    void cleanupTempFiles();

private:
    // Phase 2: fetches an updater file beside its target under the name + "_temp".
    void downloadSelfUpdateFile(const ManifestFile& file);

    HttpClient httpClient;
    ManifestVerifier manifestVerifier;
    FileUpdater fileUpdater;
    Logger& logger;
    FileUpdaterConfig fileUpdaterConfig;
    std::uint64_t maxManifestBytes;
    std::unique_ptr<SelfUpdater> selfUpdater;
};

}  // namespace velk::updater
