#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "apply/update_client.hpp"
#include "common/text.hpp"

namespace velk::updater {

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
        // The same bound as a downloaded manifest: a huge file is refused, not read.
        if (std::filesystem::file_size(manifestPath) > maxManifestBytes) {
            logger.error("Failed to read manifest file: larger than " + std::to_string(maxManifestBytes) + " bytes");
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

}  // namespace velk::updater
