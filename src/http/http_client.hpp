#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/sha256.hpp"

namespace velk::updater {

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

struct HttpConfig {
    std::uint64_t connectTimeoutSeconds = 30;
    // Limit of a whole in-memory request; a file download is aborted instead when no
    // byte arrives for this long, so a large file on a slow link still completes.
    std::uint64_t requestTimeoutSeconds = 300;
    bool verifySsl = true;
    std::string caBundlePath;
    std::string userAgent = "VELK-Updater/1.0";
    HttpHeaders defaultHeaders;  // added to in-memory requests
    std::string proxyUrl;
    std::string proxyUsername;
    std::string proxyPassword;
    bool verboseOutput = false;  // prints the "[HTTP DEBUG]" lines of file downloads
    // Largest body an in-memory request keeps; a longer or longer-announced one fails.
    std::uint64_t maxBodyBytes = 8 * 1024 * 1024;
};

struct HttpResponse {
    std::int32_t statusCode = 0;  // 0 when no transfer completed
    std::string error;            // empty on transport success
    std::string body;             // in-memory requests only
    std::uint64_t elapsedMs = 0;
    std::uint64_t bytesDownloaded = 0;
};

// Bytes received so far, the expected total and the whole percentage.
using DownloadProgress = std::function<void(std::uint64_t received, std::uint64_t total, std::int32_t percent)>;

// A synchronous client over one libcurl handle, reset before every transfer. Status
// codes are the caller's to judge. Not for concurrent use.
class HttpClient {
public:
    explicit HttpClient(const HttpConfig& config);
    ~HttpClient();
    HttpClient(const HttpClient&) = delete;
    HttpClient& operator=(const HttpClient&) = delete;

    bool initialize();
    // Fetches a URL into memory.
    HttpResponse get(const std::string& url, const HttpHeaders& headers);
    // Streams a URL into a file, replacing its content; an error page lands in the file too.
    // With `maxBytes` above 0 the transfer fails as soon as the body passes it, or at once
    // when the server announces more. Every byte written to the file is also fed to
    // `digest`, when given, so the file need not be read again to be hashed; the digest
    // covers exactly what the file holds afterwards.
    HttpResponse download(const std::string& url, const std::string& outputPath, const DownloadProgress& progress,
                          const HttpHeaders& headers, std::uint64_t maxBytes = 0,
                          platform::Sha256* digest = nullptr);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace velk::updater
