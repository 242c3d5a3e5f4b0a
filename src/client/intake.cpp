#include <chrono>
#include <fstream>
#include <iterator>

#include "client/update_client.hpp"
#include "platform/process.hpp"

namespace velk::updater {
namespace {

SelfUpdaterConfig makeSelfUpdaterConfig(const FileUpdaterConfig& files) {
    SelfUpdaterConfig config;
    config.installDirectory = files.installDirectory;
    config.tempDirectory = files.tempDirectory;
    config.currentExecutable = platform::executablePath();
    if (config.currentExecutable.empty()) {
        config.currentExecutable = platform::joinPath(files.installDirectory, "VELK_Updater.exe");
    }
    config.restartAfterUpdate = false;
    config.replacementDelaySeconds = 3;
    return config;
}

long long millisecondsSince(std::chrono::steady_clock::time_point start) {
    const auto elapsed = std::chrono::steady_clock::now() - start;
    return std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count() / 1000000;
}

}  // namespace

bool isSelfUpdateName(const std::string& name) {
    return name == "VELK_Updater.exe" || name == "Updater.exe";
}

UpdateClient::UpdateClient(const HttpConfig& httpConfig, const FileUpdaterConfig& fileUpdaterConfig,
                           const UpdaterConfig& options, const std::string& installedVersion,
                           const std::string& installedBuildNumber, Logger& logger)
    : httpClient(httpConfig),
      manifestVerifier(makeVerifierConfig(options, installedVersion, installedBuildNumber),
                       httpClient, logger),
      fileUpdater(fileUpdaterConfig, httpClient, logger),
      logger(logger),
      fileUpdaterConfig(fileUpdaterConfig),
      selfUpdater(std::make_unique<SelfUpdater>(makeSelfUpdaterConfig(fileUpdaterConfig), logger)) {
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

bool UpdateClient::checkForUpdates(const std::string& manifestUrl) {
    logger.info("Checking for updates from: " + manifestUrl);
    const auto start = std::chrono::steady_clock::now();
    const HttpResponse response = httpClient.get(manifestUrl, {});
    const std::string elapsed = std::to_string(millisecondsSince(start));

    if (response.statusCode < 200 || response.statusCode > 299) {
        logger.error("Failed to download manifest from " + manifestUrl + ": " + response.error);
        logger.error("Download time: " + elapsed + "ms");
        return false;
    }
    logger.info("Manifest downloaded successfully");
    logger.info("Download time: " + elapsed + "ms");
    logger.info("Manifest size: " + std::to_string(response.body.size()) + " bytes");
    logger.debug("Manifest content preview: " + response.body.substr(0, 200) + "...");
    return processManifest(response.body);
}

bool UpdateClient::checkForUpdatesFromFile(const std::string& manifestPath) {
    logger.info("Loading manifest from file: " + manifestPath);
    try {
        std::ifstream in(manifestPath);
        if (!in.is_open()) {
            logger.error("Failed to open manifest file: " + manifestPath);
            return false;
        }
        const std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        in.close();
        return processManifest(content);
    } catch (const std::exception& error) {
        logger.error(std::string("Failed to read manifest file: ") + error.what());
        return false;
    }
}

std::string UpdateClient::getUpdateFileUrl(const ManifestFile& file) const { return file.url; }

void UpdateClient::finalCleanup() {
    logger.info("Performing final temp file cleanup before shutdown...");
    cleanupStagingFiles();
    cleanupTempFiles();
    fileUpdater.shutdown();
}

}  // namespace velk::updater
