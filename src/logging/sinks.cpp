#include "logging/sinks.hpp"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <iostream>

#include "platform/console.hpp"
#include "platform/log_outputs.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

constexpr const char* kReset = "\033[0m";
constexpr std::size_t kFileBuffer = 1 << 16;

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

bool coloursAllowed(bool isTerminal, const char* noColorValue) {
    return isTerminal && noColorValue == nullptr;
}

ConsoleSink::ConsoleSink(const LoggerConfig& config)
    : ConsoleSink(config,
                  ConsoleColours{coloursAllowed(platform::isTerminal(platform::ConsoleStream::Output),
                                                std::getenv("NO_COLOR")),
                                 coloursAllowed(platform::isTerminal(platform::ConsoleStream::Error),
                                                std::getenv("NO_COLOR"))}) {}

void ConsoleSink::write(const LogEntry& entry, const std::string& line) {
    const bool toError = entry.level >= LogLevel::Warning;
    std::ostream& stream = toError ? std::cerr : std::cout;
    const bool colour = config_.useColors && (toError ? colours_.error : colours_.output);
    // One write per entry: the run sequence prints its own lines to the same console from
    // the main thread, and a line written in pieces could be split by one of those.
    const std::string text = colour ? colourOf(entry.level) + line + kReset + "\n" : line + "\n";
    stream << text;
    stream.flush();
    if (config_.flushEachEntry) stream.flush();
}

FileSink::FileSink(const LoggerConfig& config, std::string path)
    : config_(config), path_(std::move(path)), buffer_(kFileBuffer) {
    open();
}

bool FileSink::open() {
    // A larger buffer than the stream's own: a batch of lines leaves in few writes.
    stream_.rdbuf()->pubsetbuf(buffer_.data(), static_cast<std::streamsize>(buffer_.size()));
    stream_.open(path_, std::ios::out | std::ios::app);
    std::error_code ignored;
    const auto existing = std::filesystem::file_size(path_, ignored);
    size_ = ignored ? 0 : existing;
    return stream_.is_open();
}

void FileSink::write(const LogEntry& /*entry*/, const std::string& line) {
    if (!stream_.is_open()) return;
    stream_.write(line.data(), static_cast<std::streamsize>(line.size()));
    stream_.put('\n');
    if (config_.flushEachEntry) stream_.flush();
    // The size is counted, not asked of the stream for every line. A text stream writes
    // each "\n" as the platform's line end.
    const std::size_t lineEnd = platform::textLineEndSize();
    std::uint64_t newlines = 1;
    if (lineEnd > 1) newlines += static_cast<std::uint64_t>(std::count(line.begin(), line.end(), '\n'));
    size_ += line.size() + newlines * lineEnd - (newlines - 1);
    if (size_ > config_.maxFileSize) rotate();
}

void FileSink::flush() {
    if (stream_.is_open()) stream_.flush();
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
