#include "logging/logger.hpp"

#include <atomic>
#include <condition_variable>
#include <deque>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <mutex>
#include <sstream>
#include <thread>

#include "logging/sinks.hpp"
#include "platform/local_time.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

// The current thread's id as decimal text, made once per thread.
const std::string& currentThreadId() {
    thread_local const std::string id = [] {
        std::ostringstream text;
        text << std::this_thread::get_id();
        return text.str();
    }();
    return id;
}

// Replaces the first occurrence of `placeholder` in `text`, if there is one.
void replaceFirst(std::string& text, const std::string& placeholder, const std::string& value) {
    const auto at = text.find(placeholder);
    if (at != std::string::npos) text.replace(at, placeholder.size(), value);
}

}  // namespace

std::string levelName(LogLevel level) {
    switch (level) {
        case LogLevel::Trace:
            return "TRACE";
        case LogLevel::Debug:
            return "DEBUG";
        case LogLevel::Info:
            return "INFO";
        case LogLevel::Warning:
            return "WARNING";
        case LogLevel::Error:
            return "ERROR";
        case LogLevel::Critical:
            return "CRITICAL";
    }
    return "UNKNOWN";
}

std::string formatTimestamp(std::chrono::system_clock::time_point time, const std::string& format) {
    const auto seconds = static_cast<std::time_t>(
        std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count());
    // Lines come many to a second: keep the last text per thread.
    thread_local std::time_t cachedSecond = -1;
    thread_local std::string cachedFormat;
    thread_local std::string cachedText;
    if (seconds == cachedSecond && format == cachedFormat) return cachedText;
    const std::tm local = platform::localTime(seconds);
    std::ostringstream text;
    text << std::put_time(&local, format.c_str());
    cachedSecond = seconds;
    cachedFormat = format;
    cachedText = text.str();
    return cachedText;
}

struct Logger::Impl {
    explicit Impl(const LoggerConfig& config) : config(config) {}

    void writeEntry(const LogEntry& entry) {
        std::lock_guard<std::mutex> lock(writeMutex);
        const std::uint32_t enabled = config.sinks;
        const std::pair<std::uint32_t, LogSink*> ordered[] = {
            {SinkConsole, &console}, {SinkFile, file.get()}, {SinkDebugger, &debugger}, {SinkEventLog, &eventLog}};
        for (const auto& [bit, sink] : ordered) {
            if ((enabled & bit) != 0 && sink != nullptr) sink->write(entry, formatEntry(entry));
        }
    }

    std::string formatEntry(const LogEntry& entry) const {
        std::string line = config.pattern;
        if (config.includeTimestamp) replaceFirst(line, "{timestamp}", formatTimestamp(entry.timestamp, config.timeFormat));
        replaceFirst(line, "{level}", levelName(entry.level));
        replaceFirst(line, "{category}", entry.category);
        replaceFirst(line, "{message}", entry.message);
        if (config.includeThreadId) replaceFirst(line, "{thread}", entry.threadId);
        return line;
    }

    void workerLoop() {
        for (;;) {
            std::unique_lock<std::mutex> lock(queueMutex);
            if (stop.load()) {
                // Everything queued before the stop is written before the worker ends.
                while (!queue.empty()) {
                    LogEntry entry = std::move(queue.front());
                    queue.pop_front();
                    writeEntry(entry);
                }
                return;
            }
            ready.wait(lock, [this] { return !queue.empty() || stop.load(); });
            while (!queue.empty()) {
                LogEntry entry = std::move(queue.front());
                queue.pop_front();
                lock.unlock();
                writeEntry(entry);
                lock.lock();
            }
        }
    }

    LoggerConfig config;
    std::string currentLogFilePath;
    std::unique_ptr<FileSink> file;
    ConsoleSink console{config};
    DebuggerSink debugger;
    EventLogSink eventLog{config};
    std::mutex writeMutex;
    std::thread worker;
    std::deque<LogEntry> queue;
    std::mutex queueMutex;
    std::condition_variable ready;
    std::atomic<bool> stop{false};
};

Logger::Logger(const LoggerConfig& config) : impl_(std::make_unique<Impl>(config)) {}

Logger::~Logger() {
    if (impl_->worker.joinable()) shutdown();
}

bool Logger::initialize() {
    Impl& impl = *impl_;
    const std::string& path = impl.config.logFilePath;
    if (!path.empty()) {
        const fs::path directory = fs::path(path).parent_path();
        std::error_code error;
        if (!directory.empty() && !fs::exists(directory, error)) {
            fs::create_directories(directory, error);
            if (error) {
                std::cerr << "Failed to create log directory: " << directory << std::endl;
                return false;
            }
        }
        impl.currentLogFilePath = path;
        replaceFirst(impl.currentLogFilePath, "{timestamp}",
                     formatTimestamp(std::chrono::system_clock::now(), "%Y%m%d_%H%M%S"));
        impl.file = std::make_unique<FileSink>(impl.config, impl.currentLogFilePath);
        if (!impl.file->isOpen()) {
            std::cerr << "Failed to open log file: " << impl.currentLogFilePath << std::endl;
            impl.file.reset();
            return false;
        }
    }
    if (impl.config.asyncMode) impl.worker = std::thread([&impl] { impl.workerLoop(); });
    return true;
}

void Logger::log(LogLevel level, const std::string& message, const std::string& category) {
    Impl& impl = *impl_;
    if (level < impl.config.minLevel) return;
    LogEntry entry{level, message, category, std::chrono::system_clock::now(), currentThreadId()};
    if (!impl.config.asyncMode) {
        impl.writeEntry(entry);
        return;
    }
    {
        std::lock_guard<std::mutex> lock(impl.queueMutex);
        impl.queue.push_back(std::move(entry));
    }
    impl.ready.notify_one();
}

void Logger::debug(const std::string& message, const std::string& category) { log(LogLevel::Debug, message, category); }
void Logger::info(const std::string& message, const std::string& category) { log(LogLevel::Info, message, category); }
void Logger::warning(const std::string& message, const std::string& category) {
    log(LogLevel::Warning, message, category);
}
void Logger::error(const std::string& message, const std::string& category) { log(LogLevel::Error, message, category); }
void Logger::critical(const std::string& message, const std::string& category) {
    log(LogLevel::Critical, message, category);
}

void Logger::shutdown() {
    Impl& impl = *impl_;
    {
        // Set under the queue mutex: otherwise the worker can test its wait condition,
        // miss this wake-up and sleep for ever.
        std::lock_guard<std::mutex> lock(impl.queueMutex);
        impl.stop.exchange(true);
    }
    impl.ready.notify_all();
    if (impl.worker.joinable()) impl.worker.join();
}

std::string Logger::formatEntry(const LogEntry& entry) const { return impl_->formatEntry(entry); }

const LoggerConfig& Logger::config() const { return impl_->config; }

const std::string& Logger::currentLogFilePath() const { return impl_->currentLogFilePath; }

}  // namespace velk::updater
