#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

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
    // A failure worth another attempt: no connection, a reset, a timeout, a cut or stalled body.
    bool transient = false;
    // No connection could be made at all (refused, unresolved, timed out while connecting).
    bool unreachable = false;
    // A download abandoned for staying under its speed floor, at the average speed it had.
    bool tooSlow = false;
    std::uint64_t bytesPerSecond = 0;
    // The receiver of a download stopped it; its own record says why.
    bool stoppedByReceiver = false;
    std::string retryAfter;  // the answer's Retry-After header, as sent
};

// The final answer of a download as its headers describe it, empty where a header is absent.
struct HttpAnswer {
    std::int32_t statusCode = 0;
    std::string contentRange;
    std::string etag;
    std::string lastModified;
    std::string retryAfter;
};

// Where a download's body goes. The client only moves bytes; the receiver decides what to
// keep and when to stop.
class DownloadSink {
public:
    virtual ~DownloadSink() = default;
    // Once the final answer's headers are in, before its first byte (also when it has none).
    // False stops the transfer.
    virtual bool begin(const HttpAnswer& answer) = 0;
    // False stops the transfer.
    virtual bool write(const char* data, std::size_t size) = 0;
};

struct DownloadLimits {
    // An answer announcing a longer body is refused before its first byte (0: no limit).
    std::uint64_t maxBytes = 0;
    // A transfer whose average speed stays below this for `slowSeconds` is abandoned; at 1 it
    // is the stall limit, with `slowSeconds` 0 meaning the configured request limit.
    std::uint64_t minBytesPerSecond = 1;
    std::uint64_t slowSeconds = 0;
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
    // Streams a URL into `sink`, error pages included: the status is the receiver's to judge.
    HttpResponse download(const std::string& url, DownloadSink& sink, const HttpHeaders& headers,
                          const DownloadLimits& limits = {}, const DownloadProgress& progress = {});

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace velk::updater
