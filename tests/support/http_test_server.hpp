#pragma once

#include <httplib.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace velk::test {

// A loopback port held for the test. Listening, it never accepts: the kernel queues a finished
// handshake as pending. Not listening, every connection is refused, and no other test can take the port.
struct Listener {
    explicit Listener(bool listening = true) {
        sockaddr_in address{AF_INET, 0, {htonl(INADDR_LOOPBACK)}, {}};
        ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
        if (listening) ::listen(fd, 4);
        socklen_t length = sizeof address;
        ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length);
        port = ntohs(address.sin_port);
    }
    ~Listener() { ::close(fd); }
    std::string address() const { return "127.0.0.1:" + std::to_string(port); }
    bool connectionPending() const {
        pollfd entry{fd, POLLIN, 0};
        return ::poll(&entry, 1, 0) > 0;
    }
    int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    int port = 0;
};

// A loopback server answering from a table, else a folder's files, else 404; requests recorded.
class HttpTestServer {
public:
    enum class Kind {
        Body,      // `body` with its length
        Endless,   // a body that never ends (up to a safety cap); how much went out is counted
        Chunked,   // `body` in chunked encoding, without a length
        Short,     // announces one byte more than `body` holds, then closes
        Stall,     // headers, then nothing until the client leaves or the server stops
        Redirect,  // 302 to `body`
        Ranged,    // `body` with the ETag `etag`; a "Range: bytes=N-" whose If-Range matches gets the rest
        Slow,      // `body` at about 2 KiB/s
    };
    struct Answer {
        int status = 200;
        std::string body;
        Kind kind = Kind::Body;
        std::string etag;        // Ranged: the validator of this copy
        std::size_t cutAt = 0;   // Ranged: above 0, only this much of the answer is sent, then the connection closes
        std::string retryAfter;  // sent as Retry-After when not empty
    };

    explicit HttpTestServer(std::filesystem::path root = {}) : root_(std::move(root)) {
        server_.Get(".*", [this](const httplib::Request& req, httplib::Response& res) { answer(req, res); });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~HttpTestServer() {
        std::unique_lock<std::mutex> lock(mutex_);
        stopping_ = true;
        lock.unlock();
        stopped_.notify_all();
        server_.stop();
        thread_.join();
    }
    HttpTestServer(const HttpTestServer&) = delete;
    HttpTestServer& operator=(const HttpTestServer&) = delete;

    void set(const std::string& path, std::string body, int status = 200, Kind kind = Kind::Body) {
        std::lock_guard<std::mutex> lock(mutex_);
        // A ranged copy set this way is the first version of its file.
        answers_[path] = Answer{status, std::move(body), kind, kind == Kind::Ranged ? "\"v1\"" : "", 0, ""};
    }
    // Answers queued for `path`, each given once in turn, before its table entry.
    void queue(const std::string& path, Answer answer) {
        std::lock_guard<std::mutex> lock(mutex_);
        queued_[path].push_back(std::move(answer));
    }
    void setEndless(const std::string& path) { set(path, {}, 200, Kind::Endless); }
    void setRedirect(const std::string& path, const std::string& location) { set(path, location, 302, Kind::Redirect); }

    std::uint64_t endlessBytesSent() const { return endlessSent_; }
    static constexpr std::uint64_t kEndlessCap = 1ull << 30;

    // Body bytes sent so far by Ranged answers: what a resumed download cost.
    std::uint64_t rangedBytesSent() const { return rangedSent_; }
    // Every Range header received, in order ("" for requests without one).
    std::vector<std::string> ranges() {
        std::lock_guard<std::mutex> lock(mutex_);
        return ranges_;
    }

    std::vector<std::string> requests() {
        std::lock_guard<std::mutex> lock(mutex_);
        return requests_;
    }
    void clearRequests() {
        std::lock_guard<std::mutex> lock(mutex_);
        requests_.clear();
        ranges_.clear();
    }
    std::string lastHeader(const std::string& name) {
        std::lock_guard<std::mutex> lock(mutex_);
        const auto found = lastHeaders_.find(name);
        return found == lastHeaders_.end() ? "" : found->second;
    }
    std::string url(const std::string& path = "") const { return "http://127.0.0.1:" + std::to_string(port_) + path; }

private:
    void answer(const httplib::Request& req, httplib::Response& res) {
        Answer found;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            requests_.push_back(req.path);
            ranges_.push_back(req.get_header_value("Range"));
            lastHeaders_.clear();
            for (const auto& [name, value] : req.headers) lastHeaders_[name] = value;
            if (auto waiting = queued_.find(req.path); waiting != queued_.end() && !waiting->second.empty()) {
                found = waiting->second.front();
                waiting->second.pop_front();
            } else if (const auto entry = answers_.find(req.path); entry != answers_.end()) {
                found = entry->second;
            } else {
                return serveFile(req.path, res);
            }
        }
        res.status = found.status;
        if (!found.retryAfter.empty()) res.set_header("Retry-After", found.retryAfter);
        const std::size_t size = found.body.size();
        switch (found.kind) {
            case Kind::Body: return res.set_content(found.body, "text/plain");
            case Kind::Redirect: return res.set_header("Location", found.body);
            case Kind::Endless: return res.set_chunked_content_provider("application/octet-stream", endless());
            case Kind::Chunked:
                return res.set_chunked_content_provider("text/plain", [body = found.body](std::size_t, httplib::DataSink& sink) {
                    sink.write(body.data(), body.size());
                    sink.done();
                    return true;
                });
            case Kind::Short: return send(res, found.body, size + 1, size);
            case Kind::Ranged: return serveRanged(req, res, found);
            case Kind::Slow: return send(res, found.body, size, size, 1024, std::chrono::milliseconds(500));
            case Kind::Stall: return send(res, "", 1000, 0, SIZE_MAX, std::chrono::seconds(30));
        }
    }
    // Sends `body` as `length` bytes in blocks of at most `block`, each after `pause` (cut short
    // when the server stops), and closes the connection at `end`.
    void send(httplib::Response& res, std::string body, std::size_t length, std::size_t end,
              std::size_t block = SIZE_MAX, std::chrono::milliseconds pause = {},
              std::atomic<std::uint64_t>* counted = nullptr) {
        const auto provide = [=, this, body = std::move(body)](std::size_t offset, std::size_t wanted,
                                                               httplib::DataSink& sink) {
            if (stopsWithin(pause) || offset >= end) return false;  // closes the connection
            const std::size_t n = std::min({wanted, block, end - offset});
            if (counted != nullptr) *counted += n;
            return sink.write(body.data() + offset, n);
        };
        res.set_content_provider(length, "application/octet-stream", provide);
    }
    bool stopsWithin(std::chrono::milliseconds pause) {
        std::unique_lock<std::mutex> lock(mutex_);
        return stopped_.wait_for(lock, pause, [this] { return stopping_; });
    }
    // The rest from N for "Range: bytes=N-" when If-Range names this copy (httplib's ranges off).
    void serveRanged(const httplib::Request& req, httplib::Response& res, const Answer& found) {
        const_cast<httplib::Request&>(req).ranges.clear();
        res.set_header("ETag", found.etag);
        const std::size_t size = found.body.size();
        std::size_t from = 0;
        const std::string range = req.get_header_value("Range");
        if (range.starts_with("bytes=") && req.get_header_value("If-Range") == found.etag) {
            from = std::min<std::size_t>(std::stoul(range.substr(6)), size);
            res.status = 206;
            res.set_header("Content-Range", "bytes " + std::to_string(from) + "-" + std::to_string(size - 1) +
                                                "/" + std::to_string(size));
        }
        const std::size_t rest = size - from;
        const std::size_t end = found.cutAt > 0 ? std::min(found.cutAt, rest) : rest;
        send(res, found.body.substr(from), rest, end, SIZE_MAX, {}, &rangedSent_);
    }
    httplib::ContentProviderWithoutLength endless() {
        return [this](std::size_t offset, httplib::DataSink& sink) {
            static const std::string block(64 * 1024, 'x');
            // Bounded so that a client that never stops cannot keep a test running.
            if (offset >= kEndlessCap || !sink.write(block.data(), block.size())) return false;
            endlessSent_ += block.size();
            return true;
        };
    }
    // Streamed from disk in 1 MiB blocks, so a large file costs no memory.
    void serveFile(const std::string& path, httplib::Response& res) {
        const auto file = root_ / path.substr(1);
        std::error_code error;
        if (root_.empty() || !std::filesystem::is_regular_file(file, error)) {
            res.status = 404;
            return res.set_content("not here", "text/plain");
        }
        auto in = std::make_shared<std::ifstream>(file, std::ios::binary);
        res.set_content_provider(static_cast<std::size_t>(std::filesystem::file_size(file)), "application/octet-stream",
                                 [in](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                                     std::vector<char> block(std::min<std::size_t>(length, 1 << 20));
                                     in->seekg(static_cast<std::streamoff>(offset));
                                     in->read(block.data(), static_cast<std::streamsize>(block.size()));
                                     return sink.write(block.data(), static_cast<std::size_t>(in->gcount()));
                                 });
    }

    std::filesystem::path root_;
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
    std::mutex mutex_;
    std::condition_variable stopped_;
    bool stopping_ = false;
    std::map<std::string, Answer> answers_;
    std::map<std::string, std::deque<Answer>> queued_;
    std::vector<std::string> ranges_;
    std::atomic<std::uint64_t> rangedSent_{0};
    std::vector<std::string> requests_;
    std::map<std::string, std::string> lastHeaders_;
    std::atomic<std::uint64_t> endlessSent_{0};
};

}  // namespace velk::test
