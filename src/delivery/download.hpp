#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "http/http_client.hpp"
#include "installation/layout.hpp"
#include "logging/logger.hpp"
#include "platform/sha256.hpp"
#include "release/manifest.hpp"

// Getting a manifest entry's bytes onto disk: the one transfer, the download candidates in
// order, the entry taken out of its archive, the size checked. What arrives is still to be
// verified by its digest.
namespace velk::updater {

struct DeliveryConfig {
    std::vector<std::string> baseUrls;  // tried in order for every file
    bool tryArchiveFirst = true;
};

// What the download of one entry brought.
struct Delivery {
    bool success = false;
    std::string errorMessage;
    std::string path;  // the downloaded file, in the layout's download folder
    std::uint64_t bytesDownloaded = 0;
    std::uint64_t downloadTimeMs = 0;
};

// Streams `url` into `path`, replacing it: the one transfer every downloaded file goes
// through. Whatever lies at `path` is removed first, and only a path inside the layout's
// download or installation folder is written. An error page lands in the file too; the
// status is the caller's to judge. A body longer than `maxBytes` (when above 0) fails the
// transfer as soon as it passes it. `digest`, when given, is fed every byte that reaches
// the file.
HttpResponse fetchFile(HttpClient& http, const InstallationLayout& layout, const std::string& url,
                       const std::string& path, std::uint64_t maxBytes, platform::Sha256* digest = nullptr);

class Downloader {
public:
    Downloader(const DeliveryConfig& config, const InstallationLayout& layout, HttpClient& http, Logger& logger);

    // Downloads the entry into the layout's download file: the archive and then the plain
    // file at every base in turn (the entry's own URL when there is no base), until one
    // answers; an archive's entry is then taken out, bounded by the entry's size.
    Delivery download(const ManifestFile& file);

    // The digest taken while the last plain download was written, so that its verification
    // need not read the file again; empty when there is none or the file changed since.
    std::string keptDigestOf(const std::string& path) const;

private:
    // It stands for the file only while the file's size and modification time are still
    // those seen right after the download.
    struct KeptDigest {
        std::string path;
        std::uintmax_t size = 0;
        std::filesystem::file_time_type written{};
        std::string sha256;
    };

    // The entry's own URL, when there is no base to try.
    Delivery downloadDirect(const ManifestFile& file, Delivery result);
    // Tries the candidates in order into `result.path`; the URL that answered, with the
    // digest of what it wrote, or empty (the attempts in `result`) when none did.
    std::string fetchFirstAnswer(const ManifestFile& file, std::chrono::steady_clock::time_point start,
                                 Delivery& result, std::optional<platform::Sha256Digest>& plainDigest);
    void keepDigest(const std::string& path, const std::optional<platform::Sha256Digest>& digest);

    DeliveryConfig config_;
    InstallationLayout layout_;
    HttpClient& http_;
    Logger& logger_;
    std::optional<KeptDigest> keptDigest_;
};

}  // namespace velk::updater
