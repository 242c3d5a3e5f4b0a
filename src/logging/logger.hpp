#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

namespace velk::updater {

// Severity, ordered: a higher value is more severe.
enum class LogLevel : std::uint32_t {
    Trace = 0,
    Debug = 1,
    Info = 2,
    Warning = 3,
    Error = 4,
    Critical = 5,
};

// "TRACE" ... "CRITICAL"; "UNKNOWN" for any other value.
std::string levelName(LogLevel level);

// Output bits of LoggerConfig::sinks.
inline constexpr std::uint32_t SinkConsole = 1;
inline constexpr std::uint32_t SinkFile = 2;
inline constexpr std::uint32_t SinkEventLog = 4;
inline constexpr std::uint32_t SinkDebugger = 8;

struct LoggerConfig {
    LogLevel minLevel = LogLevel::Info;
    std::uint32_t sinks = SinkFile;
    std::string logFilePath;  // may hold "{timestamp}"; empty: no log file
    std::uint64_t maxFileSize = 10485760;
    std::uint32_t maxFiles = 5;
    bool useColors = true;
    bool includeTimestamp = true;
    bool includeThreadId = true;
    std::string timeFormat = "%Y-%m-%d %H:%M:%S";
    std::string pattern = "[{timestamp}] [{level}] [{category}] {message}";
    bool flushEachEntry = false;
    bool asyncMode = true;
    std::string eventSourceName = "VELK_Updater";
};

struct LogEntry {
    LogLevel level = LogLevel::Info;
    std::string message;
    std::string category;
    std::chrono::system_clock::time_point timestamp;
    std::string threadId;
};

// Whole seconds of `time` in the local time zone, written with a strftime-style format.
std::string formatTimestamp(std::chrono::system_clock::time_point time, const std::string& format);

// The program's one diagnostic channel. Callers filter by level and queue; one worker
// thread formats and writes to the enabled outputs in the order console, file,
// debugger output, event log, a batch of queued entries at a time.
class Logger {
public:
    explicit Logger(const LoggerConfig& config);
    ~Logger();
    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

    // Prepares the log file and starts the worker. False (with a message on standard
    // error) when the log directory cannot be created or the file cannot be opened.
    bool initialize();

    // Entries below minLevel cost the level test only. An accepted message is copied
    // once, or moved in when the caller passes a temporary.
    void log(LogLevel level, const std::string& message, const std::string& category);
    void log(LogLevel level, std::string&& message, const std::string& category);
    void debug(const std::string& message, const std::string& category = std::string());
    void debug(std::string&& message, const std::string& category = std::string());
    void info(const std::string& message, const std::string& category = std::string());
    void info(std::string&& message, const std::string& category = std::string());
    void warning(const std::string& message, const std::string& category = std::string());
    void warning(std::string&& message, const std::string& category = std::string());
    void error(const std::string& message, const std::string& category = std::string());
    void error(std::string&& message, const std::string& category = std::string());
    void critical(const std::string& message, const std::string& category = std::string());
    void critical(std::string&& message, const std::string& category = std::string());

    // Writes every entry queued so far, then stops the worker.
    void shutdown();

    // The finished line of an entry, without a line end. Control characters of the
    // message and category are shown escaped (logging/clean_text.hpp), so no entry can
    // forge another line or reach the terminal as a sequence.
    std::string formatEntry(const LogEntry& entry) const;

    const LoggerConfig& config() const;
    // The log file path with its placeholder resolved; empty before initialize.
    const std::string& currentLogFilePath() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace velk::updater
