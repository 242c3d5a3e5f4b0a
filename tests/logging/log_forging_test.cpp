#include <gtest/gtest.h>

#include "platform/clean_text.hpp"
#include "logging/logger.hpp"
#include "support/test_support.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

// Text from a manifest, a server or the registry that tries to pass for a log line of
// its own.
const std::string kForged =
    "File ok\n[2026-01-01 00:00:00] [INFO] [] Update completed successfully\r";

TEST(LogForging, NewlineInMessageCannotStartANewLogLine) {
    test::TempDir dir;
    LoggerConfig config;
    config.pattern = "[{level}] [{category}] {message}";
    config.logFilePath = (dir / "updater.log").string();
    Logger logger(config);
    ASSERT_TRUE(logger.initialize());
    logger.warning(kForged, "cat\negory");
    logger.shutdown();

    const auto lines = test::splitLines(test::readFile(config.logFilePath));
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0],
              "[WARNING] [cat\\negory] File ok\\n[2026-01-01 00:00:00] [INFO] [] Update completed "
              "successfully\\r");
}

TEST(LogForging, TerminalSequencesNeverReachTheConsole) {
    const struct {
        std::string input;
        std::string shown;
    } rows[] = {
        // clang-format off
        {"clear\x1b[2J screen", "clear\\x1b[2J screen"},
        {"bell\a nul" + std::string(1, '\0') + " del\x7f", "bell\\x07 nul\\x00 del\\x7f"},
        {"c1 csi \xc2\x9b" "31m and \xc2\x80", "c1 csi \\u009b31m and \\u0080"},
        {"lone byte \x9b" "31m, cut \xe2\x82", "lone byte \\x9b31m, cut \\xe2\\x82"},
        {"tab\tstays, C:\\Program Files\\VELK stays", "tab\tstays, C:\\Program Files\\VELK stays"},
        {"\xc3\x9c" "berwachung \xe2\x82\xac \xf0\x9f\x94\x92 \xc2\xa0", "\xc3\x9c" "berwachung \xe2\x82\xac \xf0\x9f\x94\x92 \xc2\xa0"},
        // clang-format on
    };
    LoggerConfig config;
    config.sinks = SinkConsole;
    config.pattern = "{message}";
    config.asyncMode = false;
    Logger logger(config);
    ASSERT_TRUE(logger.initialize());
    for (const auto& row : rows) {
        EXPECT_EQ(platform::escapeControlCharacters(row.input), row.shown);
        testing::internal::CaptureStdout();
        logger.info(row.input);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), row.shown + "\n");
    }
}

}  // namespace
}  // namespace velk::updater
