#pragma once

#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "logging/logger.hpp"

// The outputs a log line can go to. The logger calls them one at a time, under its write
// lock, in the order console, file, debugger output, event log.
namespace velk::updater {

class LogSink {
public:
    virtual ~LogSink() = default;
    virtual void write(const LogEntry& entry, const std::string& line) = 0;
};

class ConsoleSink : public LogSink {
public:
    explicit ConsoleSink(const LoggerConfig& config) : config_(config) {}
    void write(const LogEntry& entry, const std::string& line) override;

private:
    const LoggerConfig& config_;
};

// Appends lines to the log file, rotating it by size.
class FileSink : public LogSink {
public:
    FileSink(const LoggerConfig& config, std::string path);
    bool isOpen() const { return stream_.is_open(); }
    void write(const LogEntry& entry, const std::string& line) override;
    void rotate();

private:
    bool open();

    const LoggerConfig& config_;
    std::string path_;
    std::ofstream stream_;
};

class DebuggerSink : public LogSink {
public:
    void write(const LogEntry& entry, const std::string& line) override;
};

class EventLogSink : public LogSink {
public:
    explicit EventLogSink(const LoggerConfig& config) : config_(config) {}
    void write(const LogEntry& entry, const std::string& line) override;

private:
    const LoggerConfig& config_;
};

// ANSI colour sequence written before a line of the level.
const char* colourOf(LogLevel level);

}  // namespace velk::updater
