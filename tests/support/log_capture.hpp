#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "logging/logger.hpp"
#include "support/test_support.hpp"

namespace velk::test {

// A synchronous logger writing "[LEVEL] message" lines to a file a test reads back.
class LogCapture {
public:
    explicit LogCapture(updater::LogLevel minLevel = updater::LogLevel::Trace) {
        updater::LoggerConfig config;
        config.minLevel = minLevel;
        config.asyncMode = false;
        config.sinks = updater::SinkFile;
        config.pattern = "[{level}] {message}";
        config.logFilePath = (dir_.path() / "capture.log").string();
        logger_ = std::make_unique<updater::Logger>(config);
        logger_->initialize();
    }

    updater::Logger& logger() { return *logger_; }

    std::vector<std::string> lines() const {
        return splitLines(readFile(dir_.path() / "capture.log"));
    }

    bool contains(const std::string& line) const {
        const auto all = lines();
        return std::ranges::find(all, line) != all.end();
    }

    // How many lines start with `prefix`.
    std::size_t count(const std::string& prefix) const {
        return static_cast<std::size_t>(std::ranges::count_if(
            lines(), [&](const std::string& each) { return each.starts_with(prefix); }));
    }

    void clear() { writeFile(dir_.path() / "capture.log", ""); }

private:
    TempDir dir_;
    std::unique_ptr<updater::Logger> logger_;
};

}  // namespace velk::test
