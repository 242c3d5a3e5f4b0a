#include "delivery/download.hpp"

#include <chrono>

#include "common/text.hpp"
#include "crypto/crypto_utils.hpp"
#include "delivery/url_candidates.hpp"
#include "platform/containment.hpp"
#include "platform/zip_extract.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

bool isSuccessStatus(int status) { return status >= 200 && status <= 299; }

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

// Takes the wanted file out of the downloaded archive: the archive is set aside, the one
// entry written to the temporary path in its place (bounded by the entry's size), and the
// archive removed, so nothing else of it ever reaches the disk.
void extractArchive(const ManifestFile& file, const std::string& tempPath, Delivery& result, Logger& logger) {
    try {
        const std::string archivePath = InstallationLayout::archiveFile(tempPath);
        fs::rename(tempPath, archivePath);
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
                       const std::string& path, std::uint64_t maxBytes, platform::Sha256* digest) {
    // Whatever is at the path goes first: a link planted there (the temporary folder is
    // shared) must not carry the download elsewhere. Only the updater's folders take files.
    std::error_code ignored;
    fs::remove(path, ignored);
    if (!platform::isInsideFolder(layout.downloadDirectory(), path) &&
        !platform::isInsideFolder(layout.installDirectory(), path)) {
        HttpResponse refused;
        refused.error = "Download path lies outside the updater's folders: " + path;
        return refused;
    }
    return http.download(url, path, nullptr, {}, maxBytes, digest);
}

Downloader::Downloader(const DeliveryConfig& config, const InstallationLayout& layout, HttpClient& http,
                       Logger& logger)
    : config_(config), layout_(layout), http_(http), logger_(logger) {}

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
    if (config_.baseUrls.empty()) return downloadDirect(file, std::move(result));

    std::optional<platform::Sha256Digest> digest;
    const std::string url = fetchFirstAnswer(file, start, result, digest);
    if (url.empty()) return result;
    logger_.info("Download succeeded from: " + url);
    result.success = true;
    // Only the lower-case suffix names an archive, as the candidates are formed.
    if (url.ends_with(kArchiveSuffix)) {
        // The digest of the archive says nothing about the file taken out of it.
        extractArchive(file, result.path, result, logger_);
        if (!result.success) return result;
    } else {
        keepDigest(result.path, digest);
    }
    checkSize(file, result, logger_);
    return result;
}

Delivery Downloader::downloadDirect(const ManifestFile& file, Delivery result) {
    platform::Sha256 digest;
    const HttpResponse response = fetchFile(http_, layout_, file.url, result.path, file.size, &digest);
    if (isSuccessStatus(response.statusCode) && fs::exists(result.path)) {
        result.success = true;
        result.bytesDownloaded = response.bytesDownloaded;
        keepDigest(result.path, digest.finish());
    } else {
        result.errorMessage = "Direct download failed: " + response.error;
    }
    return result;
}

std::string Downloader::fetchFirstAnswer(const ManifestFile& file, std::chrono::steady_clock::time_point start,
                                         Delivery& result, std::optional<platform::Sha256Digest>& plainDigest) {
    UrlCandidateGenerator candidates(config_.baseUrls, config_.tryArchiveFirst);
    candidates.reset(file.url, file.name);
    std::string url;
    bool isArchive = false;
    while (candidates.next(url, isArchive)) {
        // A fresh digest per attempt: every attempt rewrites the file from its start.
        platform::Sha256 digest;
        const std::uint64_t limit = isArchive ? archiveSizeLimit(file.size) : file.size;
        const HttpResponse response = fetchFile(http_, layout_, url, result.path, limit, &digest);
        if (!isSuccessStatus(response.statusCode)) {
            logger_.warning("Download attempt failed: " + url + " => " + response.error + " (" +
                            std::to_string(response.statusCode) + ")");
            continue;
        }
        result.downloadTimeMs = millisecondsSince(start);
        result.bytesDownloaded = response.bytesDownloaded;
        if (!fs::exists(result.path)) {
            logger_.error("Downloaded file missing after success: " + result.path);
            continue;
        }
        plainDigest = digest.finish();
        return url;
    }
    std::error_code ignored;
    fs::remove(result.path, ignored);  // the last error page or cut-off body
    result.errorMessage = attemptsText(candidates.attemptedUrls());
    return {};
}

}  // namespace velk::updater
