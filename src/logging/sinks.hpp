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
    // Called after a batch of lines.
    virtual void flush() {}
};

// Whether colour sequences may go to a stream: only to a terminal, and only while the
// environment variable NO_COLOR is unset (any value, even an empty one, turns them off).
bool coloursAllowed(bool isTerminal, const char* noColorValue);

// Per stream: may colour sequences be written to standard output / standard error.
struct ConsoleColours {
    bool output = false;
    bool error = false;
};

// Lines below WARNING go to standard output, the others to standard error, each in its
// level's colour when `useColors` is set and that stream allows colours.
class ConsoleSink : public LogSink {
public:
    // Asks the platform whether each stream is a terminal.
    explicit ConsoleSink(const LoggerConfig& config);
    ConsoleSink(const LoggerConfig& config, ConsoleColours colours) : config_(config), colours_(colours) {}
    void write(const LogEntry& entry, const std::string& line) override;

private:
    const LoggerConfig& config_;
    ConsoleColours colours_;
};

// Appends lines to the log file, rotating it by size. Lines are buffered and reach the
// disk at each flush (once per batch), at each rotation and when the file is closed.
class FileSink : public LogSink {
public:
    FileSink(const LoggerConfig& config, std::string path);
    bool isOpen() const { return stream_.is_open(); }
    void write(const LogEntry& entry, const std::string& line) override;
    void flush() override;
    void rotate();

private:
    bool open();

    const LoggerConfig& config_;
    std::string path_;
    std::vector<char> buffer_;
    std::ofstream stream_;
    // The file's size on disk, counted as lines are written rather than asked of the
    // stream for every line.
    std::uint64_t size_ = 0;
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
