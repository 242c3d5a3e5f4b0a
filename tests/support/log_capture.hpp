#pragma once

#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "logging/logger.hpp"
#include "support/test_support.hpp"

namespace velk::test {

// A synchronous logger that writes "[LEVEL] message" lines to a file of its own, so a
// test can read back exactly what a component logged, in order.
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
        for (const auto& each : lines()) {
            if (each == line) return true;
        }
        return false;
    }

    // How many lines start with `prefix`.
    std::size_t count(const std::string& prefix) const {
        std::size_t found = 0;
        for (const auto& each : lines()) found += each.starts_with(prefix) ? 1 : 0;
        return found;
    }

    // Lines from the first one equal to `first` on, or nothing when it is absent.
    std::vector<std::string> from(const std::string& first) const {
        auto all = lines();
        for (std::size_t i = 0; i < all.size(); ++i) {
            if (all[i] == first) return {all.begin() + static_cast<std::ptrdiff_t>(i), all.end()};
        }
        return {};
    }

    void clear() { writeFile(dir_.path() / "capture.log", ""); }

private:
    TempDir dir_;
    std::unique_ptr<updater::Logger> logger_;
};

}  // namespace velk::test
