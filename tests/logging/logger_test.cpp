#include "logging/logger.hpp"

#include <gtest/gtest.h>

#include <iomanip>
#include <regex>
#include <sstream>
#include <thread>

#include "logging/sinks.hpp"
#include "support/test_support.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> linesOf(const fs::path& path) { return test::splitLines(test::readFile(path)); }

LogEntry entryOf(LogLevel level, const std::string& message, const std::string& category = "") {
    return LogEntry{level, message, category, std::chrono::system_clock::from_time_t(0), "4242"};
}

class LoggerTest : public ::testing::Test {
protected:
    LoggerConfig fileConfig(const std::string& pattern = "[{level}] {message}") {
        LoggerConfig config;
        config.logFilePath = (dir_ / "logs" / "updater.log").string();
        config.pattern = pattern;
        return config;
    }
    // Initializes a logger, lets `use` log through it, shuts it down and returns the lines
    // of its file.
    template <typename Use>
    std::vector<std::string> logged(const LoggerConfig& config, Use use) {
        Logger logger(config);
        EXPECT_TRUE(logger.initialize());
        use(logger);
        logger.shutdown();
        return linesOf(logger.currentLogFilePath());
    }
    test::TempDir dir_;
};

// Each placeholder is replaced at its first occurrence only, and the timestamp and thread only
// when enabled; the rest stays as written. A value is put into the line built so far, so it
// may complete a placeholder of the pattern.
TEST_F(LoggerTest, PlaceholdersAreReplacedOnceEachInTheLineBuiltSoFar) {
    const struct { std::string pattern; bool timestamp, thread; std::string message, category, line; } rows[] = {
        {"{message} and {message}", true, true, "hi", "", "hi and {message}"},
        {"[{level}] {message}", true, true, "on {thread}", "", "[INFO] on 4242"},
        {"[{level}] {message}", true, false, "on {thread}", "", "[INFO] on {thread}"},
        {"[{timestamp}] [{level}] [{category}] {message}", false, true, "x", "", "[{timestamp}] [INFO] [] x"},
        {"[{timestamp}] [{level}] [{category}] {message}", true, true, "x", "net", "[00] [INFO] [net] x"},
        {"{level}|{level}|{thread}|{timestamp}|{message}", false, false, "m", "", "INFO|{level}|{thread}|{timestamp}|m"},
        {"{thr{message}", true, true, "ead}", "", "4242"},
    };
    for (const auto& row : rows) {
        LoggerConfig config;
        config.pattern = row.pattern;
        config.includeTimestamp = row.timestamp;
        config.includeThreadId = row.thread;
        config.timeFormat = "%S";
        EXPECT_EQ(Logger(config).formatEntry(entryOf(LogLevel::Info, row.message, row.category)), row.line) << row.pattern;
    }
    EXPECT_EQ(levelName(static_cast<LogLevel>(9)), "UNKNOWN");
}

// The time text is kept from one line to the next only within its second.
TEST_F(LoggerTest, EachLineCarriesTheSecondItWasLoggedIn) {
    LoggerConfig config;
    config.pattern = "{timestamp}";
    config.timeFormat = "%S";  // the same in every time zone of whole minutes
    const Logger logger(config);
    const auto at = [&logger](std::chrono::milliseconds sinceEpoch) {
        return logger.formatEntry(LogEntry{LogLevel::Info, "", "", std::chrono::system_clock::time_point(sinceEpoch), ""});
    };
    std::string seen;
    for (const std::int64_t ms : {1700000000000, 1700000000999, 1700000001000, 1700000000500, 1700000059000}) {
        seen += at(std::chrono::milliseconds(ms)) + " ";
    }
    EXPECT_EQ(seen, "20 20 21 20 19 ");
}

TEST_F(LoggerTest, FilteredEntriesAreNeverQueued) {
    LoggerConfig config = fileConfig();
    config.minLevel = LogLevel::Warning;
    Logger logger(config);
    // Before initialize nothing is written yet, so whatever was queued shows up later.
    logger.info("dropped");
    logger.warning("kept");
    logger.debug("dropped too");
    ASSERT_TRUE(logger.initialize());
    logger.shutdown();
    EXPECT_EQ(linesOf(config.logFilePath), std::vector<std::string>{"[WARNING] kept"});
}

// The path's first "{timestamp}" is resolved once, when the file is opened; the file is opened
// even when no entry goes to it.
TEST_F(LoggerTest, TimestampInThePathIsResolvedOnceAndTheFileIsOpened) {
    LoggerConfig config = fileConfig();
    config.logFilePath = (dir_ / "app_{timestamp}_{timestamp}.log").string();
    EXPECT_EQ(logged(config, [](Logger& logger) { logger.info("hello"); }), std::vector<std::string>{"[INFO] hello"});
    const auto name = (*fs::directory_iterator(dir_.path())).path().filename().string();
    EXPECT_TRUE(std::regex_match(name, std::regex(R"(app_\d{8}_\d{6}_\{timestamp\}\.log)"))) << name;
    config = fileConfig();
    config.sinks = 0;
    EXPECT_TRUE(logged(config, [](Logger& logger) { logger.critical("nowhere"); }).empty());
    EXPECT_TRUE(fs::exists(config.logFilePath));
}

// (A log file that cannot be opened is reported end to end.)
TEST_F(LoggerTest, InitializeReportsADirectoryThatCannotBeMade) {
    test::writeFile(dir_ / "blocker", "a file where a folder should be");
    LoggerConfig config = fileConfig();
    config.logFilePath = (dir_ / "blocker" / "logs" / "updater.log").string();
    testing::internal::CaptureStderr();
    EXPECT_FALSE(Logger(config).initialize());
    std::ostringstream quoted;  // in double quotes, backslashes doubled
    quoted << std::quoted((dir_ / "blocker" / "logs").string());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to create log directory: " + quoted.str() + "\n");
}

// Shut down right after the last of them, every entry of every producer is written, each
// producer's in its order.
TEST_F(LoggerTest, NoEntryIsLostOrReorderedUnderConcurrentProducers) {
    constexpr int kThreads = 6;
    constexpr int kEntries = 5000;
    const auto lines = logged(fileConfig("{thread} {message}"), [](Logger& logger) {
        std::vector<std::thread> producers;
        for (int t = 0; t < kThreads; ++t) {
            producers.emplace_back([&logger, t] {
                for (int i = 0; i < kEntries; ++i) logger.info(std::to_string(t) + ":" + std::to_string(i));
            });
        }
        for (auto& producer : producers) producer.join();
    });
    std::map<std::string, int> next;  // producer -> next expected sequence number
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(kThreads * kEntries));
    for (const auto& line : lines) {
        const auto colon = line.rfind(':');
        const auto blank = line.find(' ');
        const std::string producer = line.substr(blank + 1, colon - blank - 1);
        ASSERT_EQ(std::stoi(line.substr(colon + 1)), next[producer]++) << line;
    }
    EXPECT_EQ(next.size(), static_cast<std::size_t>(kThreads));
}

}  // namespace
}  // namespace velk::updater
