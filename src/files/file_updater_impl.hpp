#pragma once

#include <atomic>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>

#include "files/file_updater.hpp"

// State shared by the file updater's parts (lifecycle, download, installation, update loop).
namespace velk::updater {

struct FileUpdater::Impl {
    Impl(const FileUpdaterConfig& config, HttpClient& httpClient, Logger& logger)
        : config(config), httpClient(httpClient), logger(logger) {}

    FileUpdaterConfig config;
    HttpClient& httpClient;
    Logger& logger;
    UpdateProgress progress;
    std::atomic<bool> cancelRequested{false};
    // Never reset: they add up over every updateFiles call on the same object.
    std::uint64_t filesProcessed = 0;
    std::uint64_t successfulCount = 0;
    std::uint64_t failedCount = 0;
    std::uint64_t totalBytesDownloaded = 0;

    // The digest taken while the last plain download was written, so that its verification
    // need not read the file again. It stands for the file only while the file's size and
    // modification time are still those seen right after the download.
    struct KeptDigest {
        std::string path;
        std::uintmax_t size = 0;
        std::filesystem::file_time_type written{};
        std::string sha256;
    };
    std::optional<KeptDigest> keptDigest;

    void keepDigest(const std::string& path, const std::optional<platform::Sha256Digest>& digest);
    // The kept digest of the file at `path`, or empty when there is none or the file changed.
    std::string keptDigestOf(const std::string& path) const;
};

inline std::uint64_t millisecondsSince(std::chrono::steady_clock::time_point start) {
    const auto elapsed = std::chrono::steady_clock::now() - start;
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count() / 1000000);
}

}  // namespace velk::updater
