#include "logging/logger.hpp"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <mutex>
#include <sstream>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/clean_text.hpp"
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

enum class Field { Literal, Timestamp, Level, Category, Message, Thread };

// One piece of the pattern: literal text, or the place of a field.
struct Segment {
    Field field = Field::Literal;
    std::string text;
};

constexpr std::pair<std::string_view, Field> kPlaceholders[] = {{"{timestamp}", Field::Timestamp},
                                                                 {"{level}", Field::Level},
                                                                 {"{category}", Field::Category},
                                                                 {"{message}", Field::Message},
                                                                 {"{thread}", Field::Thread}};

bool hasBrace(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](char c) { return c == '{' || c == '}'; });
}

// One quick pass that clears most texts: no byte below 0x20 or from '{' (0x7B) up means
// no control character, no brace and no UTF-8 to look at.
bool isPlainText(std::string_view text) {
    return std::all_of(text.begin(), text.end(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte >= 0x20 && byte < 0x7B;
    });
}

// The pattern cut once into literal text and fields. Each placeholder is replaced
// only at its first occurrence (and the timestamp and thread only when enabled); later
// ones stay as literal text. `plain` is false when literal text holds a brace outside a
// placeholder: then a value could complete a placeholder, and lines are built by the
// step-by-step replacement instead.
struct CompiledPattern {
    std::vector<Segment> segments;
    bool plain = true;
};

CompiledPattern compilePattern(const LoggerConfig& config) {
    CompiledPattern compiled;
    bool used[std::size(kPlaceholders)] = {};
    auto literal = [&compiled](std::string_view text) {
        if (text.empty()) return;
        if (compiled.segments.empty() || compiled.segments.back().field != Field::Literal) compiled.segments.push_back({});
        compiled.segments.back().text.append(text);
    };
    std::string_view rest = config.pattern;
    while (!rest.empty()) {
        std::size_t index = 0;
        for (; index < std::size(kPlaceholders); ++index) {
            if (rest.substr(0, kPlaceholders[index].first.size()) == kPlaceholders[index].first) break;
        }
        if (index == std::size(kPlaceholders)) {
            if (rest.front() == '{' || rest.front() == '}') compiled.plain = false;
            literal(rest.substr(0, 1));
            rest.remove_prefix(1);
            continue;
        }
        const auto [name, field] = kPlaceholders[index];
        const bool enabled = (field != Field::Timestamp || config.includeTimestamp) &&
                             (field != Field::Thread || config.includeThreadId);
        if (enabled && !used[index]) {
            compiled.segments.push_back({field, {}});
        } else {
            literal(name);
        }
        used[index] = true;
        rest.remove_prefix(name.size());
    }
    return compiled;
}

// Replaces the first occurrence of `placeholder` in `text`, if there is one.
void replaceFirst(std::string& text, std::string_view placeholder, std::string_view value) {
    const auto at = text.find(placeholder);
    if (at != std::string::npos) text.replace(at, placeholder.size(), value);
}

// The last timestamp text made on this thread; lines come many to a second.
const std::string& cachedTimestamp(std::chrono::system_clock::time_point time, const std::string& format) {
    const auto seconds = static_cast<std::time_t>(
        std::chrono::duration_cast<std::chrono::seconds>(time.time_since_epoch()).count());
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
    return cachedTimestamp(time, format);
}

struct Logger::Impl {
    explicit Impl(const LoggerConfig& config) : config(config), pattern(compilePattern(config)) {
        queue.reserve(kQueueReserve);
    }

    void writeEntry(const LogEntry& entry) {
        std::lock_guard<std::mutex> lock(writeMutex);
        offer(entry);
        flushSinks();
    }

    // One lock and one flush for the whole batch: the file reaches the disk once per
    // batch rather than once per line.
    void writeBatch(const std::vector<LogEntry>& batch) {
        std::lock_guard<std::mutex> lock(writeMutex);
        for (const LogEntry& entry : batch) offer(entry);
        flushSinks();
    }

    std::string formatEntry(const LogEntry& entry) const {
        std::string line;
        formatInto(entry, line);
        return line;
    }

    void formatInto(const LogEntry& entry, std::string& line) const {
        std::string escapedMessage;
        std::string escapedCategory;
        std::string_view message = entry.message;
        std::string_view category = entry.category;
        const bool plainMessage = isPlainText(message);
        const bool plainCategory = isPlainText(category);
        if (!plainMessage && platform::hasControlCharacters(message)) {
            message = escapedMessage = platform::escapeControlCharacters(message);
        }
        if (!plainCategory && platform::hasControlCharacters(category)) {
            category = escapedCategory = platform::escapeControlCharacters(category);
        }
        const std::string& timestamp =
            config.includeTimestamp ? cachedTimestamp(entry.timestamp, config.timeFormat) : noText;
        const std::string level = levelName(entry.level);

        if (!pattern.plain || (!plainMessage && hasBrace(message)) || (!plainCategory && hasBrace(category)) ||
            hasBrace(timestamp) || hasBrace(entry.threadId)) {
            // A value may hold a placeholder: replace one after the other, each in the
            // line built so far.
            line = config.pattern;
            if (config.includeTimestamp) replaceFirst(line, "{timestamp}", timestamp);
            replaceFirst(line, "{level}", level);
            replaceFirst(line, "{category}", category);
            replaceFirst(line, "{message}", message);
            if (config.includeThreadId) replaceFirst(line, "{thread}", entry.threadId);
            return;
        }
        line.clear();
        for (const Segment& segment : pattern.segments) {
            switch (segment.field) {
                case Field::Literal:
                    line += segment.text;
                    break;
                case Field::Timestamp:
                    line += timestamp;
                    break;
                case Field::Level:
                    line += level;
                    break;
                case Field::Category:
                    line += category;
                    break;
                case Field::Message:
                    line += message;
                    break;
                case Field::Thread:
                    line += entry.threadId;
                    break;
            }
        }
    }

    void workerLoop() {
        std::vector<LogEntry> batch;
        batch.reserve(kQueueReserve);
        std::unique_lock<std::mutex> lock(queueMutex);
        for (;;) {
            while (queue.empty() && !stop.load()) {
                workerSleeping = true;
                ready.wait(lock);
            }
            workerSleeping = false;
            // Everything queued before the stop is written before the worker ends.
            if (queue.empty()) return;
            batch.swap(queue);
            lock.unlock();
            writeBatch(batch);
            batch.clear();  // keeps its capacity for the next swap
            lock.lock();
        }
    }

    void accept(LogEntry&& entry) {
        if (!config.asyncMode) {
            writeEntry(entry);
            return;
        }
        bool wake = false;
        {
            std::lock_guard<std::mutex> lock(queueMutex);
            queue.push_back(std::move(entry));
            // Only a sleeping worker needs the signal; a busy one takes this entry with
            // its next batch.
            wake = std::exchange(workerSleeping, false);
        }
        if (wake) ready.notify_one();
    }

    LoggerConfig config;
    CompiledPattern pattern;
    std::string currentLogFilePath;
    std::unique_ptr<FileSink> file;
    ConsoleSink console{config};
    DebuggerSink debugger;
    EventLogSink eventLog{config};
    std::mutex writeMutex;
    std::thread worker;
    std::vector<LogEntry> queue;
    bool workerSleeping = false;  // guarded by queueMutex
    std::mutex queueMutex;
    std::condition_variable ready;
    std::atomic<bool> stop{false};

private:
    void offer(const LogEntry& entry) {
        const std::uint32_t enabled = config.sinks;
        const std::pair<std::uint32_t, LogSink*> ordered[] = {
            {SinkConsole, &console}, {SinkFile, file.get()}, {SinkDebugger, &debugger}, {SinkEventLog, &eventLog}};
        bool formatted = false;
        for (const auto& [bit, sink] : ordered) {
            if ((enabled & bit) == 0 || sink == nullptr) continue;
            if (!formatted) formatInto(entry, lineBuffer);
            formatted = true;
            sink->write(entry, lineBuffer);
        }
    }

    void flushSinks() {
        if ((config.sinks & SinkFile) != 0 && file) file->flush();
    }

    inline static const std::string noText;
    // Room for a burst of entries before the queue must grow; the two vectors are swapped
    // between caller and worker and keep what they have grown to.
    static constexpr std::size_t kQueueReserve = 1 << 16;
    std::string lineBuffer;  // reused for every line, under writeMutex
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
    if (level < impl_->config.minLevel) return;
    impl_->accept(LogEntry{level, message, category, std::chrono::system_clock::now(), currentThreadId()});
}

void Logger::log(LogLevel level, std::string&& message, const std::string& category) {
    if (level < impl_->config.minLevel) return;
    impl_->accept(LogEntry{level, std::move(message), category, std::chrono::system_clock::now(), currentThreadId()});
}

void Logger::debug(const std::string& message, const std::string& category) {
    log(LogLevel::Debug, message, category);
}
void Logger::debug(std::string&& message, const std::string& category) {
    log(LogLevel::Debug, std::move(message), category);
}
void Logger::info(const std::string& message, const std::string& category) {
    log(LogLevel::Info, message, category);
}
void Logger::info(std::string&& message, const std::string& category) {
    log(LogLevel::Info, std::move(message), category);
}
void Logger::warning(const std::string& message, const std::string& category) {
    log(LogLevel::Warning, message, category);
}
void Logger::warning(std::string&& message, const std::string& category) {
    log(LogLevel::Warning, std::move(message), category);
}
void Logger::error(const std::string& message, const std::string& category) {
    log(LogLevel::Error, message, category);
}
void Logger::error(std::string&& message, const std::string& category) {
    log(LogLevel::Error, std::move(message), category);
}
void Logger::critical(const std::string& message, const std::string& category) {
    log(LogLevel::Critical, message, category);
}
void Logger::critical(std::string&& message, const std::string& category) {
    log(LogLevel::Critical, std::move(message), category);
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
