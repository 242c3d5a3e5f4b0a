#pragma once

#include <atomic>
#include <cstdint>

#include "apply/file_updater.hpp"
#include "delivery/download.hpp"

// State shared by the file updater's stages (lifecycle, download, installation, update loop).
namespace velk::updater {

struct FileUpdater::Impl {
    Impl(const FileUpdaterConfig& config, HttpClient& httpClient, Logger& logger)
        : config(config),
          logger(logger),
          downloader(deliveryConfig(config), config.layout, httpClient, logger) {}

    static DeliveryConfig deliveryConfig(const FileUpdaterConfig& config) {
        DeliveryConfig delivery{config.baseUrls, config.tryArchiveFirst, config.transfer};
        delivery.policy.maxRetries = config.maxRetries;
        return delivery;
    }

    FileUpdaterConfig config;
    Logger& logger;
    Downloader downloader;
    UpdateProgress progress;
    std::atomic<bool> cancelRequested{false};
    // Never reset: they add up over every updateFiles call on the same object.
    std::uint64_t filesProcessed = 0;
    std::uint64_t successfulCount = 0;
    std::uint64_t failedCount = 0;
    std::uint64_t totalBytesDownloaded = 0;
};

}  // namespace velk::updater
