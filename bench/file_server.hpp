#pragma once

#include <httplib.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

namespace velk::bench {

// Serves the files below a folder by path on loopback, streamed from disk in 1 MiB blocks.
class FileServer {
public:
    explicit FileServer(std::filesystem::path root) : root_(std::move(root)) {
        server_.Get(R"(/(.+))", [this](const httplib::Request& req, httplib::Response& res) {
            const auto path = root_ / req.matches[1].str();
            std::error_code error;
            if (!std::filesystem::is_regular_file(path, error)) {
                res.status = 404;
                return;
            }
            const auto size = static_cast<std::size_t>(std::filesystem::file_size(path));
            auto in = std::make_shared<std::ifstream>(path, std::ios::binary);
            res.set_content_provider(size, "application/octet-stream",
                                     [in](std::size_t offset, std::size_t length, httplib::DataSink& sink) {
                                         std::vector<char> block(std::min<std::size_t>(length, 1 << 20));
                                         in->seekg(static_cast<std::streamoff>(offset));
                                         in->read(block.data(), static_cast<std::streamsize>(block.size()));
                                         return sink.write(block.data(), static_cast<std::size_t>(in->gcount()));
                                     });
        });
        port_ = server_.bind_to_any_port("127.0.0.1");
        thread_ = std::thread([this] { server_.listen_after_bind(); });
        while (!server_.is_running()) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    ~FileServer() {
        server_.stop();
        thread_.join();
    }
    FileServer(const FileServer&) = delete;
    FileServer& operator=(const FileServer&) = delete;

    std::string url(const std::string& path = "") const {
        return "http://127.0.0.1:" + std::to_string(port_) + "/" + path;
    }

private:
    std::filesystem::path root_;
    httplib::Server server_;
    int port_ = 0;
    std::thread thread_;
};

}  // namespace velk::bench
