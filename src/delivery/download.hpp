#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "delivery/retry.hpp"
#include "http/http_client.hpp"
#include "installation/layout.hpp"
#include "logging/logger.hpp"
#include "platform/sha256.hpp"
#include "release/manifest.hpp"

// Getting a manifest entry's bytes onto disk: the one transfer, the download candidates in
// order, the entry taken out of its archive, the size checked. What arrives is still to be
// verified by its digest.
namespace velk::updater {

// An entry's transfer so far: its name, the bytes done (a continued partial included) and
// the total.
using TransferProgress = std::function<void(const std::string& name, std::uint64_t done, std::uint64_t total)>;

struct DeliveryConfig {
    std::vector<std::string> baseUrls;  // tried in order for every file
    bool tryArchiveFirst = true;
    TransferPolicy policy;
    TransferProgress progress;  // told while bytes arrive, when set
};

// What the download of one entry brought.
struct Delivery {
    bool success = false;
    std::string errorMessage;
    std::string path;  // the downloaded file, in the layout's download folder
    std::uint64_t bytesDownloaded = 0;
    std::uint64_t downloadTimeMs = 0;
};

// Streams `url` into a new file at `path` in one attempt. Whatever lies at `path` is removed
// first, and only a path inside the layout's download or installation folder is written. An
// error page is read and dropped; the status is the caller's to judge. A body longer than
// `maxBytes` (when above 0) fails the transfer as soon as it passes it.
HttpResponse fetchFile(HttpClient& http, const InstallationLayout& layout, const std::string& url,
                       const std::string& path, std::uint64_t maxBytes);

class Downloader {
public:
    Downloader(const DeliveryConfig& config, const InstallationLayout& layout, HttpClient& http, Logger& logger);

    // Downloads the entry into the layout's download file: the archive and then the plain
    // file at every base in turn (the entry's own URL when there is no base), until one
    // answers; an archive's entry is then taken out, bounded by the entry's size. A transient
    // failure is tried again on the same candidate with a growing wait, a plain file's
    // partial continued where it stopped; a source that cannot be reached is skipped for the
    // rest of the run, and one under the speed floor is left while another remains.
    Delivery download(const ManifestFile& file);
    // Builds the entry's file from the installed copy's bytes `base` and `patch`: the patch is
    // fetched like a file (the same candidates without archives, bounds, retries and resume)
    // and checked by its digest, applied in the download folder, and the result checked
    // against the entry's size and SHA-256. The caller falls back to download() on failure.
    Delivery downloadPatched(const ManifestFile& file, const ManifestPatch& patch, std::span<const char> base);

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

    struct Candidate {
        std::string url;
        bool isArchive = false;
        bool last = false;  // no other candidate remains: any speed above a stall will do
    };

    // Tries the candidates in order; the URL that answered, with the digest of the plain
    // file it wrote to `result.path` (an archive to its archive path), or empty (the attempts
    // in `result`) when none did.
    std::string fetchFirstAnswer(const ManifestFile& file, std::chrono::steady_clock::time_point start,
                                 Delivery& result, std::optional<platform::Sha256Digest>& plainDigest,
                                 bool archives = true);
    // One candidate with its retries; true when it delivered.
    bool fetchCandidate(const ManifestFile& file, const Candidate& candidate, const std::string& downloadPath,
                        Delivery& result, std::optional<platform::Sha256Digest>& plainDigest);
    // Reports a transfer of `file` to the configured progress, counting a continued part.
    DownloadProgress progressOf(const ManifestFile& file, std::uint64_t continuedFrom) const;
    // The base a candidate came from (the URL's origin for an entry's own URL).
    std::string sourceOf(const std::string& url) const;
    // Waits before retry `retry` when the policy and the run's retry budget allow one.
    bool waitToRetry(std::uint32_t retry, const HttpResponse& response, const std::string& url);
    void keepDigest(const std::string& path, const std::optional<platform::Sha256Digest>& digest);

    DeliveryConfig config_;
    InstallationLayout layout_;
    HttpClient& http_;
    Logger& logger_;
    std::optional<KeptDigest> keptDigest_;
    std::chrono::milliseconds retryLeft_;  // what is left of the run's retry budget
    std::set<std::string> unreachable_;   // sources that could not be reached in this run
};

}  // namespace velk::updater
