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
    logger.info(lineOf(20, 'c'));  // 120 > 100: rotated after the write
    EXPECT_EQ(fs::file_size(path(".1")), 120u);
    EXPECT_EQ(fs::file_size(path()), 0u);
    logger.info(lineOf(60, 'd'));
    EXPECT_EQ(test::readFile(path()), lineOf(60, 'd') + test::kLineEnd);
}

// Older files move up one suffix and the one past the depth is dropped; at depth 1 the single
// old file is replaced and files past it are left alone.
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

// Warnings and worse go to standard error, the rest to standard output, each in its level's
// colour only where that stream may have colours.
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
