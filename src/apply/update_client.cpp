#include "apply/update_client.hpp"

namespace velk::updater {

UpdateClient::UpdateClient(const HttpConfig& httpConfig, const FileUpdaterConfig& fileUpdaterConfig,
                           const ManifestVerifierConfig& verifierConfig, const SelfUpdaterConfig& selfUpdaterConfig,
                           Logger& logger)
    : httpClient(httpConfig),
      manifestVerifier(verifierConfig, logger),
      fileUpdater(fileUpdaterConfig, httpClient, logger),
      logger(logger),
      layout(fileUpdaterConfig.layout),
      maxManifestBytes(httpConfig.maxBodyBytes),
      selfUpdater(std::make_unique<SelfUpdater>(selfUpdaterConfig, logger)) {
    selfUpdater->verifySelfUpdate();
    selfUpdater->cleanupOldBackups();
}

UpdateClient::~UpdateClient() = default;

bool UpdateClient::initialize() {
    if (!httpClient.initialize()) {
        logger.error("Failed to initialize HTTP client");
        return false;
    }
    if (!fileUpdater.initialize()) {
        logger.error("Failed to initialize file updater");
        return false;
    }
    return true;
}

std::string UpdateClient::getUpdateFileUrl(const ManifestFile& file) const { return file.url; }

bool UpdateClient::executeUpdateSequence(const Manifest& /*manifest*/, bool preUpdate) {
    logger.info(preUpdate ? "Executing pre-update sequence..." : "Executing post-update sequence...");
    return true;
}

void UpdateClient::finalCleanup() {
    logger.info("Performing final temp file cleanup before shutdown...");
    cleanupStagingFiles();
    cleanupTempFiles();
    fileUpdater.shutdown();
}

}  // namespace velk::updater
