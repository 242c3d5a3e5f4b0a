#include "logging/sinks.hpp"

#include <filesystem>
#include <iostream>

#include "platform/log_outputs.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

constexpr const char* kReset = "\033[0m";

platform::EventType eventTypeOf(LogLevel level) {
    switch (level) {
        case LogLevel::Warning:
            return platform::EventType::Warning;
        case LogLevel::Error:
        case LogLevel::Critical:
            return platform::EventType::Error;
        default:
            return platform::EventType::Information;
    }
}

}  // namespace

const char* colourOf(LogLevel level) {
    switch (level) {
        case LogLevel::Trace:
            return "\033[37m";
        case LogLevel::Debug:
            return "\033[36m";
        case LogLevel::Info:
            return "\033[32m";
        case LogLevel::Warning:
            return "\033[33m";
        case LogLevel::Error:
            return "\033[31m";
        case LogLevel::Critical:
            return "\033[35m";
    }
    return "";
}

void ConsoleSink::write(const LogEntry& entry, const std::string& line) {
    std::ostream& stream = entry.level < LogLevel::Warning ? std::cout : std::cerr;
    // One write per entry: the run sequence prints its own lines to the same console from
    // the main thread, and a line written in pieces could be split by one of those.
    const std::string text = config_.useColors ? colourOf(entry.level) + line + kReset + "\n" : line + "\n";
    stream << text;
    stream.flush();
    if (config_.flushEachEntry) stream.flush();
}

FileSink::FileSink(const LoggerConfig& config, std::string path) : config_(config), path_(std::move(path)) { open(); }

bool FileSink::open() {
    stream_.open(path_, std::ios::out | std::ios::app);
    return stream_.is_open();
}

void FileSink::write(const LogEntry& /*entry*/, const std::string& line) {
    if (!stream_.is_open()) return;
    stream_ << line << '\n';
    stream_.flush();
    if (config_.flushEachEntry) stream_.flush();
    const auto position = stream_.tellp();
    if (position > 0 && static_cast<std::uint64_t>(position) > config_.maxFileSize) rotate();
}

// Shifts name.1 .. name.(maxFiles-1) up by one, the current file to name.1, and starts
// a new file. A rename that fails is passed over; when the new file cannot be opened,
// file logging stops quietly rather than ending the process.
void FileSink::rotate() {
    if (!stream_.is_open()) return;
    stream_.close();
    std::error_code ignored;
    for (std::uint32_t i = config_.maxFiles > 0 ? config_.maxFiles - 1 : 0; i >= 1; --i) {
        const std::string from = path_ + "." + std::to_string(i);
        if (fs::exists(from, ignored)) fs::rename(from, path_ + "." + std::to_string(i + 1), ignored);
    }
    if (fs::exists(path_, ignored)) fs::rename(path_, path_ + ".1", ignored);
    open();
}

void DebuggerSink::write(const LogEntry& /*entry*/, const std::string& line) { platform::debugOutput(line + "\n"); }

void EventLogSink::write(const LogEntry& entry, const std::string& line) {
    platform::reportEvent(config_.eventSourceName, eventTypeOf(entry.level), line);
}

}  // namespace velk::updater
