#pragma once

#include <httplib.h>

#include <chrono>
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
};

}  // namespace velk::test
