#include "logging/sinks.hpp"

#include <gtest/gtest.h>

#include "support/test_support.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

class RotationTest : public ::testing::Test {
protected:
    RotationTest() {
        config_.asyncMode = false;
        config_.pattern = "{message}";
        config_.logFilePath = path();
    }
    std::string path(const std::string& suffix = "") const { return (dir_ / "updater.log").string() + suffix; }
    // A message whose line, with its line end, takes exactly `bytes` bytes on disk.
    static std::string lineOf(std::size_t bytes, char fill) { return std::string(bytes - test::kLineEnd.size(), fill); }

    test::TempDir dir_;
    LoggerConfig config_;
};

// A file of exactly the limit stays; the line that crosses it stays in the file, which
// is then rotated, and the next line starts a fresh one.
TEST_F(RotationTest, RotatedOnlyAfterTheLineThatCrossesTheLimit) {
    config_.maxFileSize = 100;
    Logger logger(config_);
    ASSERT_TRUE(logger.initialize());
    logger.info(lineOf(40, 'a'));
    logger.info(lineOf(60, 'b'));
    EXPECT_EQ(fs::file_size(path()), 100u);
    EXPECT_FALSE(fs::exists(path(".1")));
    logger.info(lineOf(20, 'c'));  // 120 > 100: rotated after the write
    EXPECT_EQ(fs::file_size(path(".1")), 120u);
    EXPECT_EQ(fs::file_size(path()), 0u);
    logger.info(lineOf(60, 'd'));
    EXPECT_EQ(test::readFile(path()), lineOf(60, 'd') + test::kLineEnd);
}

TEST_F(RotationTest, SuffixesShiftUpAndTheOldestIsDropped) {
    config_.maxFileSize = 10;
    for (int i = 1; i <= 5; ++i) test::writeFile(path("." + std::to_string(i)), "old " + std::to_string(i) + "\n");
    Logger logger(config_);
    ASSERT_TRUE(logger.initialize());
    logger.info("current line over ten bytes");
    EXPECT_EQ(test::readFile(path(".1")), "current line over ten bytes" + test::kLineEnd);
    for (int i = 2; i <= 5; ++i) EXPECT_EQ(test::readFile(path("." + std::to_string(i))), "old " + std::to_string(i - 1) + "\n");
    EXPECT_FALSE(fs::exists(path(".6")));
}

TEST_F(RotationTest, DepthOneReplacesTheSingleOldFile) {
    config_.maxFileSize = 10;
    config_.maxFiles = 1;
    test::writeFile(path(".1"), "older\n");
    test::writeFile(path(".2"), "untouched\n");
    Logger logger(config_);
    ASSERT_TRUE(logger.initialize());
    logger.info("first long line");
    logger.info("second long line");
    EXPECT_EQ(test::readFile(path(".1")), "second long line" + test::kLineEnd);
    EXPECT_EQ(test::readFile(path(".2")), "untouched\n");
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
    EXPECT_FALSE(fs::exists(path(".1")));
}

TEST(ConsoleSink, StreamByLevelAndColourBytes) {
    LoggerConfig config;
    ConsoleSink sink(config, ConsoleColours{true, true});
    const std::pair<LogLevel, std::string> colours[] = {
        {LogLevel::Trace, "\033[37m"}, {LogLevel::Debug, "\033[36m"}, {LogLevel::Info, "\033[32m"},
        {LogLevel::Warning, "\033[33m"}, {LogLevel::Error, "\033[31m"}, {LogLevel::Critical, "\033[35m"}};
    for (const auto& [level, colour] : colours) {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        sink.write(LogEntry{level, "m", "", {}, "1"}, "line");
        const std::string out = testing::internal::GetCapturedStdout();
        const std::string err = testing::internal::GetCapturedStderr();
        const bool toError = level >= LogLevel::Warning;
        EXPECT_EQ(toError ? err : out, colour + "line\033[0m\n") << levelName(level);
        EXPECT_EQ(toError ? out : err, "") << levelName(level);
    }
    config.useColors = false;
    testing::internal::CaptureStderr();
    sink.write(LogEntry{LogLevel::Warning, "m", "", {}, "1"}, "plain");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "plain\n");
}

TEST(ConsoleSink, EachStreamDecidesOnColoursForItself) {
    LoggerConfig config;
    ConsoleSink sink(config, ConsoleColours{false, true});  // output piped, error on a terminal
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    sink.write(LogEntry{LogLevel::Info, "m", "", {}, "1"}, "to a pipe");
    sink.write(LogEntry{LogLevel::Error, "m", "", {}, "1"}, "to a terminal");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "to a pipe\n");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "\033[31mto a terminal\033[0m\n");

    const struct {
        bool terminal;
        const char* noColor;
        bool allowed;
    } rows[] = {{true, nullptr, true}, {true, "", false}, {true, "1", false}, {false, nullptr, false}};
    for (const auto& row : rows) {
        EXPECT_EQ(coloursAllowed(row.terminal, row.noColor), row.allowed)
            << row.terminal << " NO_COLOR=" << (row.noColor ? row.noColor : "(unset)");
    }
}

}  // namespace
}  // namespace velk::updater
