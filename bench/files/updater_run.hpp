#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "apply/file_updater.hpp"
#include "http/http_client.hpp"

namespace velk::bench {

// One quiet run of the file updater into `install` against `baseUrl`, plain files only (the
// benchmarks publish no archives, as curl fetches plain files); aborts when a file fails.
// The bytes it downloaded.
inline std::uint64_t runFileUpdater(const std::filesystem::path& install, const std::string& baseUrl,
                                    const updater::Manifest& manifest, bool patches = true) {
    updater::LoggerConfig quiet;
    quiet.sinks = 0;
    updater::Logger logger(quiet);
    logger.initialize();
    updater::HttpClient http{updater::HttpConfig{}};
    http.initialize();
    updater::FileUpdaterConfig config;
    config.layout = updater::InstallationLayout(install.string());
    config.baseUrls = {baseUrl};
    config.tryArchiveFirst = false;
    config.usePatches = patches;
    updater::FileUpdater files(config, http, logger);
    files.initialize();
    std::uint64_t bytes = 0;
    for (const auto& result : files.updateFiles(manifest, {})) {
        if (!result.success) std::abort();
        bytes += result.bytesDownloaded;
    }
    logger.shutdown();
    return bytes;
}

}  // namespace velk::bench
