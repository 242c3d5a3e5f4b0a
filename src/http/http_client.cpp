#include "http/http_client.hpp"

#include <curl/curl.h>

#include <chrono>
#include <fstream>
#include <iostream>

#include "platform/clean_text.hpp"

namespace velk::updater {
namespace {

using HeaderList = std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)>;

HeaderList buildHeaders(const std::vector<std::string>& fixed, const HttpHeaders& first, const HttpHeaders& second) {
    curl_slist* list = nullptr;
    for (const auto& line : fixed) list = curl_slist_append(list, line.c_str());
    for (const HttpHeaders* headers : {&first, &second}) {
        for (const auto& [name, value] : *headers) list = curl_slist_append(list, (name + ": " + value).c_str());
    }
    return HeaderList(list, curl_slist_free_all);
}

// Where a body goes, and how much of it is accepted: a server that sends more than it may
// (an endless body) is cut off at the limit instead of filling memory or the disk.
struct BodyTarget {
    std::string* text = nullptr;
    std::ofstream* file = nullptr;
    platform::Sha256* digest = nullptr;  // fed what reaches the file
    std::uint64_t limit = 0;  // 0: no limit
    std::uint64_t received = 0;
    bool exceeded = false;
};

// Returning less than the block makes libcurl abort with its write error.
std::size_t writeBody(char* data, std::size_t size, std::size_t count, void* context) {
    auto& target = *static_cast<BodyTarget*>(context);
    const std::size_t bytes = size * count;
    target.received += bytes;
    if (target.limit > 0 && target.received > target.limit) {
        target.exceeded = true;
        return 0;
    }
    if (target.text != nullptr) {
        target.text->append(data, bytes);
        return bytes;
    }
    target.file->write(data, static_cast<std::streamsize>(bytes));
    if (target.file->fail()) return 0;
    // A failing hasher only loses the digest (its finish() reports nothing), not the file.
    if (target.digest != nullptr) target.digest->update(data, bytes);
    return bytes;
}

// Lets libcurl refuse a body whose announced length is already too long.
void limitBody(CURL* curl, std::uint64_t limit) {
    if (limit > 0) curl_easy_setopt(curl, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(limit));
}

std::string tooLarge(std::uint64_t limit) {
    return "Response larger than the expected " + std::to_string(limit) + " bytes";
}

int reportProgress(void* target, curl_off_t total, curl_off_t received, curl_off_t, curl_off_t) {
    if (total > 0) {
        const auto& progress = *static_cast<const DownloadProgress*>(target);
        progress(static_cast<std::uint64_t>(received), static_cast<std::uint64_t>(total),
                 static_cast<std::int32_t>(received * 100 / total));
    }
    return 0;  // the callback cannot stop a transfer
}

class Stopwatch {
public:
    std::uint64_t elapsedMs() const {
        const auto elapsed = std::chrono::steady_clock::now() - start_;
        return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
    }

private:
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

// libcurl's text for the result; a refused scheme also says which schemes are allowed.
std::string transportError(CURLcode result) {
    std::string text = curl_easy_strerror(result);
    if (result == CURLE_UNSUPPORTED_PROTOCOL) text += " (only http and https URLs are allowed)";
    return text;
}

// The server's words (URL, content type) are shown escaped: they cannot forge a line or
// reach the terminal as a sequence.
void debugLine(const std::string& text) {
    std::cout << ("[HTTP DEBUG] " + platform::escapeControlCharacters(text) + "\n") << std::flush;
}

}  // namespace

struct HttpClient::Impl {
    explicit Impl(const HttpConfig& config) : config(config) {}

    // A reset returns the handle to libcurl's defaults; the configured settings are put
    // back for every transfer.
    void prepare(const std::string& url) {
        CURL* curl = handle.get();
        curl_easy_reset(curl);
        curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
        curl_easy_setopt(curl, CURLOPT_HTTPGET, 1L);
        curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
        curl_easy_setopt(curl, CURLOPT_USERAGENT, config.userAgent.c_str());
        curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 1L);
        curl_easy_setopt(curl, CURLOPT_MAXREDIRS, 5L);
        // Only web transfers: a URL from a manifest must not make libcurl speak gopher,
        // dict or any other protocol to an address of its choosing, nor read local files.
        curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(curl, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
        curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT, static_cast<long>(config.connectTimeoutSeconds));
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, config.verifySsl ? 1L : 0L);
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, config.verifySsl ? 2L : 0L);
        if (config.verifySsl && !config.caBundlePath.empty()) {
            curl_easy_setopt(curl, CURLOPT_CAINFO, config.caBundlePath.c_str());
        }
        if (!config.proxyUrl.empty()) {
            curl_easy_setopt(curl, CURLOPT_PROXY, config.proxyUrl.c_str());
            if (!config.proxyUsername.empty()) {
                proxyCredentials = config.proxyUsername + ":" + config.proxyPassword;
                curl_easy_setopt(curl, CURLOPT_PROXYUSERPWD, proxyCredentials.c_str());
            }
        }
    }

    HttpConfig config;
    std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> handle{nullptr, curl_easy_cleanup};
    std::string proxyCredentials;
};

HttpClient::HttpClient(const HttpConfig& config) : impl_(std::make_unique<Impl>(config)) {}

HttpClient::~HttpClient() = default;

bool HttpClient::initialize() {
    if (curl_global_init(CURL_GLOBAL_ALL) != CURLE_OK) return false;
    impl_->handle.reset(curl_easy_init());
    return impl_->handle != nullptr;
}

HttpResponse HttpClient::get(const std::string& url, const HttpHeaders& headers) {
    const Stopwatch clock;
    HttpResponse response;
    CURL* curl = impl_->handle.get();
    if (curl == nullptr) {
        response.error = "Curl not initialized";
        return response;
    }
    impl_->prepare(url);
    curl_easy_setopt(curl, CURLOPT_TIMEOUT, static_cast<long>(impl_->config.requestTimeoutSeconds));
    const HeaderList list = buildHeaders({}, headers, impl_->config.defaultHeaders);
    if (list) curl_easy_setopt(curl, CURLOPT_HTTPHEADER, list.get());
    std::string body;
    BodyTarget target{&body, nullptr, nullptr, impl_->config.maxBodyBytes};
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, writeBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &target);
    limitBody(curl, target.limit);

    const CURLcode result = curl_easy_perform(curl);
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    response.statusCode = static_cast<std::int32_t>(status);
    response.elapsedMs = clock.elapsedMs();
    if (result != CURLE_OK) {
        const bool overLimit = target.exceeded || result == CURLE_FILESIZE_EXCEEDED;
        response.error = overLimit ? tooLarge(target.limit) : transportError(result);
        // A cut-off body is no transfer, whatever status its headers carried.
        if (overLimit) response.statusCode = 0;
        return response;
    }
    response.bytesDownloaded = body.size();
    response.body = std::move(body);
    return response;
}

HttpResponse HttpClient::download(const std::string& url, const std::string& outputPath,
                                  const DownloadProgress& progress, const HttpHeaders& headers,
                                  std::uint64_t maxBytes, platform::Sha256* digest) {
    const Stopwatch clock;
    HttpResponse response;
    CURL* curl = impl_->handle.get();
    if (curl == nullptr) {
        response.error = "Curl not initialized";
        return response;
    }
    std::ofstream file(outputPath, std::ios::binary | std::ios::trunc);
    if (!file.is_open()) {
        response.error = "Failed to open output file";
        return response;
    }
    impl_->prepare(url);
    // No whole-transfer limit here: the transfer is aborted when it stalls instead.
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, static_cast<long>(impl_->config.requestTimeoutSeconds));
    // Larger reads: the default 16 KiB costs a system call per block on fast links.
    curl_easy_setopt(curl, CURLOPT_BUFFERSIZE, 512L * 1024L);
    const HeaderList list = buildHeaders({"Accept-Encoding: identity", "Cache-Control: no-cache"}, headers, {});
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, list.get());
    BodyTarget target{nullptr, &file, digest, maxBytes};
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, writeBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &target);
    limitBody(curl, maxBytes);
    if (progress) {
        curl_easy_setopt(curl, CURLOPT_XFERINFOFUNCTION, reportProgress);
        curl_easy_setopt(curl, CURLOPT_XFERINFODATA, &progress);
        curl_easy_setopt(curl, CURLOPT_NOPROGRESS, 0L);
    }

    const CURLcode result = curl_easy_perform(curl);
    file.close();
    const bool writeFailed = file.fail();
    if (result != CURLE_OK) {
        response.elapsedMs = clock.elapsedMs();
        const bool overLimit = target.exceeded || result == CURLE_FILESIZE_EXCEEDED;
        long status = 0;
        curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
        if (overLimit && (status < 200 || status > 299) && status != 0) {
            // An error page cut off at the limit is still the server's answer.
            response.statusCode = static_cast<std::int32_t>(status);
            return response;
        }
        response.error = overLimit ? tooLarge(maxBytes) : "Curl error: " + transportError(result);
        return response;
    }
    if (writeFailed) {
        response.error = "File write error during download";
        response.elapsedMs = clock.elapsedMs();
        return response;
    }

    long status = 0;
    curl_off_t received = 0, contentLength = -1;
    char* contentType = nullptr;
    char* effectiveUrl = nullptr;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    curl_easy_getinfo(curl, CURLINFO_SIZE_DOWNLOAD_T, &received);
    curl_easy_getinfo(curl, CURLINFO_CONTENT_TYPE, &contentType);
    curl_easy_getinfo(curl, CURLINFO_EFFECTIVE_URL, &effectiveUrl);
    curl_easy_getinfo(curl, CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &contentLength);
    response.statusCode = static_cast<std::int32_t>(status);
    response.bytesDownloaded = static_cast<std::uint64_t>(received);

    if (impl_->config.verboseOutput) {
        if (effectiveUrl != nullptr) debugLine(std::string("Effective URL: ") + effectiveUrl);
        if (contentType != nullptr) debugLine(std::string("Content-Type: ") + contentType);
        debugLine("Status Code: " + std::to_string(status));
        debugLine("Content-Length header: " + (contentLength < 1 ? std::string("not set") : std::to_string(contentLength)));
        debugLine("Actual downloaded: " + std::to_string(received) + " bytes");
        if (contentLength > 0 && contentLength != received) {
            debugLine("WARNING: Content-Length mismatch! Header: " + std::to_string(contentLength) +
                      ", Downloaded: " + std::to_string(received));
        }
    }
    response.elapsedMs = clock.elapsedMs();
    return response;
}

}  // namespace velk::updater
