#include "delivery/download.hpp"

#include <chrono>
#include <thread>

#include "common/text.hpp"
#include "crypto/crypto_utils.hpp"
#include "delivery/partial_download.hpp"
#include "delivery/url_candidates.hpp"
#include "platform/containment.hpp"
#include "platform/zip_extract.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

void logDownloadStart(Logger& logger, const ManifestFile& file, const std::string& tempPath) {
    logger.info("=== Download Debug Info ===");
    logger.info("File: " + file.name);
    logger.info("URL: " + file.url);
    logger.info("Expected size: " + std::to_string(file.size) + " bytes");
    logger.info("Expected SHA256: " + file.sha256);
    logger.info("Temp path: " + tempPath);
}

std::string attemptsText(const std::vector<std::string>& urls) {
    std::string text = "Download failed after attempts (zip then plain per base):\n";
    for (const auto& url : urls) text += "  - " + url + "\n";
    return text;
}

// Takes the wanted file out of the downloaded archive: the one entry is written to the
// download path (bounded by the entry's size) and the archive removed, so nothing else of it
// ever reaches the disk.
void extractArchive(const ManifestFile& file, const std::string& tempPath, Delivery& result, Logger& logger) {
    try {
        const std::string archivePath = InstallationLayout::archiveFile(tempPath);
        fs::remove(tempPath);
        const platform::ZipEntryStatus status = platform::extractZipEntry(archivePath, file.name, tempPath, file.size);
        std::error_code ignored;
        fs::remove(archivePath, ignored);
        switch (status) {
            case platform::ZipEntryStatus::Extracted:
                result.bytesDownloaded = fs::file_size(tempPath);
                logger.info("Extracted zip for file: " + file.name);
                return;
            case platform::ZipEntryStatus::NotFound:
                result.errorMessage = "Zip missing expected entry";
                break;
            case platform::ZipEntryStatus::TooLarge:
                result.errorMessage = "Zip entry larger than expected";
                break;
            case platform::ZipEntryStatus::Unreadable:
                result.errorMessage = "Failed to extract zip";
                break;
        }
        result.success = false;
    } catch (const std::exception& error) {
        result.success = false;
        result.errorMessage = std::string("Failed to extract zip: ") + error.what();
    }
}

// An archive of a file is at most a little larger than the file: stored data, a few
// headers, and deflate's few bytes per block for data that does not compress.
std::uint64_t archiveSizeLimit(std::uint64_t fileSize) {
    return fileSize == 0 ? 0 : fileSize + fileSize / 1000 + 64 * 1024;
}

void checkSize(const ManifestFile& file, Delivery& result, Logger& logger) {
    if (file.size == 0) return;
    std::uintmax_t actual = 0;
    try {
        actual = fs::file_size(result.path);
    } catch (const std::exception& error) {
        result.success = false;
        result.errorMessage = std::string("Failed to stat file: ") + error.what();
        return;
    }
    if (actual != file.size) {
        logger.error("File size mismatch after download: expected " + std::to_string(file.size) + ", got " +
                     std::to_string(actual));
        result.success = false;
        result.errorMessage = "File size mismatch";
    }
}

}  // namespace

HttpResponse fetchFile(HttpClient& http, const InstallationLayout& layout, const std::string& url,
                       const std::string& path, std::uint64_t maxBytes) {
    HttpResponse refused;
    if (!platform::isInsideFolder(layout.downloadDirectory(), path) &&
        !platform::isInsideFolder(layout.installDirectory(), path)) {
        refused.error = "Download path lies outside the updater's folders: " + path;
        return refused;
    }
    PartialDownload body({path, "", url, 0, "", maxBytes});
    if (!body.open(refused.error)) return refused;
    HttpResponse response = http.download(url, body, {}, {maxBytes});
    body.finish();
    if (!body.failure().empty()) response.error = body.failure();
    return response;
}

Downloader::Downloader(const DeliveryConfig& config, const InstallationLayout& layout, HttpClient& http,
                       Logger& logger)
    : config_(config), layout_(layout), http_(http), logger_(logger), retryLeft_(config.policy.retryBudget) {}

void Downloader::keepDigest(const std::string& path, const std::optional<platform::Sha256Digest>& digest) {
    keptDigest_.reset();
    if (!digest) return;
    std::error_code error;
    KeptDigest kept{path, fs::file_size(path, error), {}, ""};
    if (error) return;
    kept.written = fs::last_write_time(path, error);
    if (error) return;
    kept.sha256 = CryptoUtils::toHex(std::vector<std::uint8_t>(digest->begin(), digest->end()));
    keptDigest_ = std::move(kept);
}

std::string Downloader::keptDigestOf(const std::string& path) const {
    if (!keptDigest_ || keptDigest_->path != path) return "";
    std::error_code error;
    const std::uintmax_t size = fs::file_size(path, error);
    if (error || size != keptDigest_->size) return "";
    const fs::file_time_type written = fs::last_write_time(path, error);
    if (error || written != keptDigest_->written) return "";
    return keptDigest_->sha256;
}

Delivery Downloader::download(const ManifestFile& file) {
    const auto start = std::chrono::steady_clock::now();
    Delivery result;
    result.path = layout_.downloadFile(file.name);
    logDownloadStart(logger_, file, result.path);
    keptDigest_.reset();

    std::optional<platform::Sha256Digest> digest;
    const std::string url = fetchFirstAnswer(file, start, result, digest);
    if (url.empty()) return result;
    logger_.info("Download succeeded from: " + url);
    result.success = true;
    // Only the lower-case suffix names an archive, as the candidates are formed.
    if (!config_.baseUrls.empty() && url.ends_with(kArchiveSuffix)) {
        // The digest of the archive says nothing about the file taken out of it.
        extractArchive(file, result.path, result, logger_);
        if (!result.success) return result;
    } else {
        keepDigest(result.path, digest);
    }
    checkSize(file, result, logger_);
    return result;
}

std::string Downloader::fetchFirstAnswer(const ManifestFile& file, std::chrono::steady_clock::time_point start,
                                         Delivery& result, std::optional<platform::Sha256Digest>& plainDigest,
                                         bool archives) {
    std::vector<Candidate> candidates;
    if (config_.baseUrls.empty()) {
        candidates.push_back({file.url, false, true});
    } else {
        UrlCandidateGenerator generator(config_.baseUrls, config_.tryArchiveFirst);
        generator.reset(file.url, file.name);
        Candidate next;
        while (generator.next(next.url, next.isArchive)) {
            if (archives || !next.isArchive) candidates.push_back(next);
        }
    }
    for (std::size_t i = 0; i < candidates.size(); ++i) {
        Candidate& candidate = candidates[i];
        candidate.last = i + 1 == candidates.size();
        if (unreachable_.contains(sourceOf(candidate.url))) {
            logger_.warning("Skipping unreachable source: " + candidate.url);
            continue;
        }
        if (fetchCandidate(file, candidate, result.path, result, plainDigest)) {
            result.downloadTimeMs = millisecondsSince(start);
            return candidate.url;
        }
    }
    std::vector<std::string> tried;
    for (const auto& candidate : candidates) tried.push_back(candidate.url);
    result.errorMessage = config_.baseUrls.empty() ? "Direct download failed: " + result.errorMessage : attemptsText(tried);
    return {};
}

bool Downloader::fetchCandidate(const ManifestFile& file, const Candidate& candidate, const std::string& downloadPath,
                                Delivery& result, std::optional<platform::Sha256Digest>& plainDigest) {
    const TransferPolicy& policy = config_.policy;
    const std::string path =
        candidate.isArchive ? InstallationLayout::archiveFile(downloadPath) : InstallationLayout::partialFile(downloadPath);
    const std::string record = candidate.isArchive ? "" : InstallationLayout::resumeRecord(path);
    const std::uint64_t limit = candidate.isArchive ? archiveSizeLimit(file.size) : file.size;
    // The last candidate keeps any speed above a stall, so that a slow line still completes.
    const DownloadLimits limits = candidate.last ? DownloadLimits{limit}
                                                 : DownloadLimits{limit, policy.minBytesPerSecond, policy.slowWindowSeconds};
    for (std::uint32_t retry = 0;; ++retry) {
        PartialDownload body({path, record, candidate.url, file.size, file.sha256, limit});
        std::string error;
        if (!body.open(error)) {
            logger_.error("Cannot write the download: " + error);
            return false;
        }
        if (body.continuedFrom() > 0) {
            logger_.info("Resuming download of " + file.name + " at byte " + std::to_string(body.continuedFrom()));
        }
        HttpResponse response =
            http_.download(candidate.url, body, body.requestHeaders(), limits, progressOf(file, body.continuedFrom()));
        const std::optional<platform::Sha256Digest> digest = body.finish();
        if (!body.failure().empty()) response.error = body.failure();
        const Verdict verdict = judge(response);
        if (verdict == Verdict::Success) {
            body.complete();
            result.bytesDownloaded = response.bytesDownloaded;
            if (candidate.isArchive) return true;
            plainDigest = digest;
            std::error_code moved;
            fs::rename(path, downloadPath, moved);
            if (!moved) return true;
            logger_.error("Cannot keep the download: " + moved.message());
            return false;
        }
        if (response.tooSlow) {
            logger_.warning("Download too slow: " + candidate.url + " (" + std::to_string(response.bytesPerSecond) +
                            " bytes/s), trying the next source");
        }
        // Kept only for another attempt at the same source: any other source starts over.
        if (verdict != Verdict::Retry || !body.continuable()) body.discard();
        retryLeft_ -= std::min(retryLeft_, std::chrono::milliseconds(response.elapsedMs));
        if (verdict == Verdict::Retry && retry < policy.maxRetries && waitToRetry(retry, response, candidate.url)) continue;
        logger_.warning("Download attempt failed: " + candidate.url + " => " + response.error + " (" +
                        std::to_string(response.statusCode) + ")");
        result.errorMessage = response.error;
        if (response.unreachable) unreachable_.insert(sourceOf(candidate.url));
        return false;
    }
}

DownloadProgress Downloader::progressOf(const ManifestFile& file, std::uint64_t continuedFrom) const {
    if (!config_.progress) return {};
    return [this, &file, continuedFrom](std::uint64_t received, std::uint64_t total, std::int32_t) {
        config_.progress(file.name, continuedFrom + received, file.size > 0 ? file.size : continuedFrom + total);
    };
}

std::string Downloader::sourceOf(const std::string& url) const {
    std::string source = splitUrl(url).first;
    for (const auto& base : config_.baseUrls) {
        const std::string trimmed = base.substr(0, base.find_last_not_of('/') + 1);
        if (url.starts_with(trimmed + "/") && trimmed.size() > source.size()) source = trimmed;
    }
    return source;
}

bool Downloader::waitToRetry(std::uint32_t retry, const HttpResponse& response, const std::string& url) {
    const double fraction = static_cast<double>(CryptoUtils::randomUniform(1000)) / 1000.0;
    const std::chrono::milliseconds wait = retryDelay(config_.policy, retry, response.retryAfter, fraction);
    if (wait > retryLeft_) return false;
    retryLeft_ -= wait;
    logger_.warning("Download attempt failed: " + url + " => " + response.error + " (" +
                    std::to_string(response.statusCode) + "), retrying in " + std::to_string(wait.count()) + " ms");
    std::this_thread::sleep_for(wait);
    return true;
}

}  // namespace velk::updater
