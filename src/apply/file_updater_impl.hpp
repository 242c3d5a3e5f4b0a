#pragma once

#include <atomic>
#include <cstdint>

#include <iostream>

#include "apply/file_updater.hpp"
#include "apply/progress_line.hpp"
#include "platform/console.hpp"
#include "delivery/download.hpp"

// State shared by the file updater's stages (lifecycle, download, installation, update loop).
namespace velk::updater {

struct FileUpdater::Impl {
    Impl(const FileUpdaterConfig& config, HttpClient& httpClient, Logger& logger)
        : config(config),
          logger(logger),
          downloader(deliveryConfig(config), config.layout, httpClient, logger) {}

    DeliveryConfig deliveryConfig(const FileUpdaterConfig& config) {
        DeliveryConfig delivery{config.baseUrls, config.tryArchiveFirst, config.transfer, {}};
        delivery.policy.maxRetries = config.maxRetries;
        // The live line only on a terminal: a pipe or a file keeps the lines as they are.
        if (platform::isTerminal(platform::ConsoleStream::Output)) {
            delivery.progress = [this](const std::string& name, std::uint64_t done, std::uint64_t total) {
                progressLine.update(name, done, total);
            };
        }
        return delivery;
    }

    FileUpdaterConfig config;
    Logger& logger;
    ProgressLine progressLine{std::cout};
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
