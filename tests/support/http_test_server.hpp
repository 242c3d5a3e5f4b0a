#pragma once

#include <httplib.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace velk::test {

// An HTTP server on loopback, on a port the OS picks, answering from a table of paths.
// Unknown paths get 404. Every request path is recorded in order.
class HttpTestServer {
public:
    struct Answer {
        int status = 200;
        std::string body;
        bool endless = false;
    };

    HttpTestServer() {
        server_.Get(".*", [this](const httplib::Request& req, httplib::Response& res) {
            std::lock_guard<std::mutex> lock(mutex_);
            requests_.push_back(req.path);
            const auto found = answers_.find(req.path);
            if (found == answers_.end()) {
                res.status = 404;
                res.set_content("not here", "text/plain");
                return;
            }
            res.status = found->second.status;
            if (found->second.endless) {
                res.set_chunked_content_provider("application/octet-stream", [this](std::size_t offset, httplib::DataSink& sink) {
                    static const std::string block(64 * 1024, 'x');
                    // Bounded so that a client that never stops cannot keep a test running.
                    if (offset >= kEndlessCap) return false;
                    if (!sink.write(block.data(), block.size())) return false;
                    endlessSent_ += block.size();
                    return true;
                });
                return;
            }
            res.set_content(found->second.body, "application/octet-stream");
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~HttpTestServer() {
        server_.stop();
        thread_.join();
    }
    HttpTestServer(const HttpTestServer&) = delete;
    HttpTestServer& operator=(const HttpTestServer&) = delete;

    void set(const std::string& path, std::string body, int status = 200) {
        std::lock_guard<std::mutex> lock(mutex_);
        answers_[path] = Answer{status, std::move(body)};
    }
    // A body that never ends (up to a safety cap); how much of it went out is counted.
    void setEndless(const std::string& path) {
        std::lock_guard<std::mutex> lock(mutex_);
        answers_[path] = Answer{200, {}, true};
    }
    std::uint64_t endlessBytesSent() const { return endlessSent_; }
    static constexpr std::uint64_t kEndlessCap = 1ull << 30;

    std::vector<std::string> requests() {
        std::lock_guard<std::mutex> lock(mutex_);
        return requests_;
    }
    void clearRequests() {
        std::lock_guard<std::mutex> lock(mutex_);
        requests_.clear();
    }
    std::string url(const std::string& path = "") const { return "http://127.0.0.1:" + std::to_string(port_) + path; }

private:
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
    std::mutex mutex_;
    std::map<std::string, Answer> answers_;
    std::vector<std::string> requests_;
    std::atomic<std::uint64_t> endlessSent_{0};
};

}  // namespace velk::test
