#include "logging/logger.hpp"

#include <gtest/gtest.h>

#include <iomanip>
#include <regex>
#include <sstream>
#include <thread>

#include "logging/sinks.hpp"
#include "platform/clean_text.hpp"
#include "support/test_support.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

class LoggerTest : public ::testing::Test {
protected:
    LoggerConfig fileConfig(const std::string& pattern = "[{level}] {message}") {
        return {.logFilePath = (dir_ / "logs" / "updater.log").string(), .pattern = pattern};
    }
    // The lines of the file of a logger that `use` logged through and that was then shut down.
    template <typename Use>
    std::vector<std::string> logged(const LoggerConfig& config, Use use) {
        Logger logger(config);
        EXPECT_TRUE(logger.initialize());
        use(logger);
        logger.shutdown();
        return test::splitLines(test::readFile(logger.currentLogFilePath()));
    }
    test::TempDir dir_;
};
class LogForging : public LoggerTest {};

// A value is put into the line built so far, so it may complete a placeholder.
TEST_F(LoggerTest, PlaceholdersAreReplacedOnceEachInTheLineBuiltSoFar) {
    const struct { std::string pattern; bool timestamp, thread; std::string message, category, line; } rows[] = {
        {"{message} and {message}", true, true, "hi", "", "hi and {message}"},
        {"[{level}] {message}", true, true, "on {thread}", "", "[INFO] on 4242"},
        {"[{timestamp}] [{level}] [{category}] {message}", false, true, "x", "", "[{timestamp}] [INFO] [] x"},
        {"[{timestamp}] [{level}] [{category}] {message}", true, true, "x", "net", "[00] [INFO] [net] x"},
        {"{level}|{level}|{thread}|{timestamp}|{message}", false, false, "m", "", "INFO|{level}|{thread}|{timestamp}|m"},
        {"{thr{message}", true, true, "ead}", "", "4242"},
    };
    for (const auto& row : rows) {
        const LoggerConfig config{.logFilePath = "", .includeTimestamp = row.timestamp, .includeThreadId = row.thread,
                                  .timeFormat = "%S", .pattern = row.pattern};
        const LogEntry entry{LogLevel::Info, row.message, row.category, std::chrono::system_clock::from_time_t(0), "4242"};
        EXPECT_EQ(Logger(config).formatEntry(entry), row.line) << row.pattern;
    }
    EXPECT_EQ(levelName(static_cast<LogLevel>(9)), "UNKNOWN");
}

// The time text is kept from one line to the next only within its second.
TEST_F(LoggerTest, EachLineCarriesTheSecondItWasLoggedIn) {
    // Seconds read the same in every time zone of whole minutes.
    const Logger logger(LoggerConfig{.logFilePath = "", .timeFormat = "%S", .pattern = "{timestamp}"});
    std::string seen;
    for (const std::int64_t ms : {1700000000000, 1700000000999, 1700000001000, 1700000000500, 1700000059000}) {
        const std::chrono::system_clock::time_point at{std::chrono::milliseconds(ms)};
        seen += logger.formatEntry(LogEntry{LogLevel::Info, "", "", at, ""}) + " ";
    }
    EXPECT_EQ(seen, "20 20 21 20 19 ");
}

// Nothing is written before initialize, so whatever was queued below the level would show.
TEST_F(LoggerTest, FilteredEntriesAreNeverQueued) {
    LoggerConfig config = fileConfig();
    config.minLevel = LogLevel::Warning;
    Logger logger(config);
    logger.info("dropped");
    logger.warning("kept");
    logger.debug("dropped too");
    ASSERT_TRUE(logger.initialize());
    logger.shutdown();
    const auto lines = test::splitLines(test::readFile(config.logFilePath));
    EXPECT_EQ(lines, std::vector<std::string>{"[WARNING] kept"});
}

// The path's first "{timestamp}" is resolved once; the file is opened even when no entry goes to it.
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

// Shut down right after the producers, every entry is written, each producer's in its order.
TEST_F(LoggerTest, NoEntryIsLostOrReorderedUnderConcurrentProducers) {
    constexpr int kThreads = 6, kEntries = 5000;
    const auto lines = logged(fileConfig("{message}"), [](Logger& logger) {
        std::vector<std::jthread> producers;
        for (int t = 0; t < kThreads; ++t) {
            producers.emplace_back([&logger, t] {
                for (int i = 0; i < kEntries; ++i) logger.info(std::to_string(t) + ":" + std::to_string(i));
            });
        }
    });
    ASSERT_EQ(lines.size(), static_cast<std::size_t>(kThreads * kEntries));
    std::map<std::string, int> next;  // producer -> next expected sequence number
    for (const auto& line : lines) {
        const auto colon = line.find(':');
        ASSERT_EQ(std::stoi(line.substr(colon + 1)), next[line.substr(0, colon)]++) << line;
    }
}

// Text from a manifest, a server or the registry that tries to pass for a log line of its own.
TEST_F(LogForging, NewlineInMessageCannotStartANewLogLine) {
    const auto lines = logged(fileConfig("[{level}] [{category}] {message}"), [](Logger& logger) {
        logger.warning("File ok\n[2026-01-01 00:00:00] [INFO] [] Update completed successfully\r", "cat\negory");
    });
    EXPECT_EQ(lines, std::vector<std::string>{"[WARNING] [cat\\negory] File ok\\n[2026-01-01 00:00:00] [INFO] [] "
                                              "Update completed successfully\\r"});
}

TEST_F(LogForging, TerminalSequencesNeverReachTheConsole) {
    const struct { std::string input, shown; } rows[] = {
        {"clear\x1b[2J screen", "clear\\x1b[2J screen"},
        {"bell\a nul" + std::string(1, '\0') + " del\x7f", "bell\\x07 nul\\x00 del\\x7f"},
        {"c1 csi \xc2\x9b" "31m and \xc2\x80", "c1 csi \\u009b31m and \\u0080"},
        {"lone byte \x9b" "31m, cut \xe2\x82", "lone byte \\x9b31m, cut \\xe2\\x82"},
        {"tab\tstays, C:\\Program Files\\VELK stays", "tab\tstays, C:\\Program Files\\VELK stays"},
        {"\xc3\x9c" "berwachung \xe2\x82\xac \xf0\x9f\x94\x92 \xc2\xa0", "\xc3\x9c" "berwachung \xe2\x82\xac \xf0\x9f\x94\x92 \xc2\xa0"},
    };
    Logger logger(LoggerConfig{
        .sinks = SinkConsole, .logFilePath = "", .pattern = "{message}", .asyncMode = false});
    ASSERT_TRUE(logger.initialize());
    for (const auto& row : rows) {
        EXPECT_EQ(platform::escapeControlCharacters(row.input), row.shown);  // also where the logger skips it
        testing::internal::CaptureStdout();
        logger.info(row.input);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.shown + "\n");
    }
}

class RotationTest : public ::testing::Test {
protected:
    std::string path(const std::string& suffix = "") const { return (dir_ / "updater.log").string() + suffix; }
    // A message whose line, with its line end, takes exactly `bytes` bytes on disk.
    static std::string lineOf(std::size_t bytes, char fill) { return std::string(bytes - test::kLineEnd.size(), fill); }

    test::TempDir dir_;
    LoggerConfig config_{.logFilePath = path(), .pattern = "{message}", .asyncMode = false};
};

// A file of exactly the limit stays; the line that crosses it stays in the file, which is then rotated.
TEST_F(RotationTest, RotatedOnlyAfterTheLineThatCrossesTheLimit) {
    config_.maxFileSize = 100;
    Logger logger(config_);
    ASSERT_TRUE(logger.initialize());
    logger.info(lineOf(40, 'a'));
    logger.info(lineOf(60, 'b'));
    EXPECT_EQ(fs::file_size(path()), 100u);
    logger.info(lineOf(20, 'c'));  // 120 > 100: rotated after the write
    EXPECT_EQ(fs::file_size(path(".1")), 120u);
    EXPECT_EQ(fs::file_size(path()), 0u);
    logger.info(lineOf(60, 'd'));
    EXPECT_EQ(test::readFile(path()), lineOf(60, 'd') + test::kLineEnd);
}

// At depth 1 the single old file is replaced and files past it are left alone.
TEST_F(RotationTest, SuffixesShiftUpAndTheOldestIsDropped) {
    config_.maxFileSize = 10;
    for (int i = 1; i <= 6; ++i) test::writeFile(path("." + std::to_string(i)), "old " + std::to_string(i) + "\n");
    {
        Logger logger(config_);
        ASSERT_TRUE(logger.initialize());
        logger.info("current line over ten bytes");
    }
    std::string files;
    for (int i = 1; i <= 6; ++i) files += test::readFile(path("." + std::to_string(i)));
    EXPECT_EQ(files, "current line over ten bytes" + test::kLineEnd + "old 1\nold 2\nold 3\nold 4\nold 6\n");

    config_.maxFiles = 1;
    Logger logger(config_);
    ASSERT_TRUE(logger.initialize());
    logger.info("first long line");
    logger.info("second long line");
    EXPECT_EQ(test::readFile(path(".1")), "second long line" + test::kLineEnd);
    EXPECT_EQ(test::readFile(path(".2")), "old 1\n");
}

TEST_F(RotationTest, FailedRenameKeepsLoggingInTheSameFile) {
    config_.maxFileSize = 10;
    Logger logger(config_);
    ASSERT_TRUE(logger.initialize());
    test::ScopedImmutable locked(dir_.path());
    if (!locked.active()) GTEST_SKIP() << "the file system refuses the immutable attribute here";
    logger.info("this line triggers a rotation that cannot happen");
    logger.info("and this one follows it");
    EXPECT_EQ(test::readFile(path()), "this line triggers a rotation that cannot happen" + test::kLineEnd + "and this one follows it" + test::kLineEnd);
}

// Warnings and worse go to standard error, the rest to standard output, coloured where that stream may be.
TEST(ConsoleSink, EachStreamDecidesOnColoursForItself) {
    const struct { LogLevel level; bool outColours, errColours, useColors; std::string out, err; } rows[] = {
        {LogLevel::Trace, true, true, true, "\033[37mline\033[0m\n", ""},
        {LogLevel::Debug, true, true, true, "\033[36mline\033[0m\n", ""},
        {LogLevel::Info, true, true, true, "\033[32mline\033[0m\n", ""},
        {LogLevel::Warning, true, true, true, "", "\033[33mline\033[0m\n"},
        {LogLevel::Error, true, true, true, "", "\033[31mline\033[0m\n"},
        {LogLevel::Critical, true, true, true, "", "\033[35mline\033[0m\n"},
        {LogLevel::Warning, true, true, false, "", "line\n"},
        {LogLevel::Info, false, true, true, "line\n", ""},
        {LogLevel::Error, false, true, true, "", "\033[31mline\033[0m\n"},
        {LogLevel::Error, true, false, true, "", "line\n"},
    };
    for (const auto& row : rows) {
        LoggerConfig config;
        config.useColors = row.useColors;
        ConsoleSink sink(config, ConsoleColours{row.outColours, row.errColours});
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        sink.write(LogEntry{row.level, "m", "", {}, "1"}, "line");
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.out) << levelName(row.level);
        EXPECT_EQ(testing::internal::GetCapturedStderr(), row.err) << levelName(row.level);
    }
    EXPECT_TRUE(coloursAllowed(true, nullptr));
    for (const char* noColor : {"", "1"}) EXPECT_FALSE(coloursAllowed(true, noColor)) << "NO_COLOR=" << noColor;
    EXPECT_FALSE(coloursAllowed(false, nullptr));
}

}  // namespace
}  // namespace velk::updater
