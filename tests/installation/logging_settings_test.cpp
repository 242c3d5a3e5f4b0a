#include "installation/logging_settings.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <vector>

#include "support/log_capture.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;
using test::writeFile;
using test::writeRegistry;

constexpr const char* kLoggingHeader = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quenmark\\VELK\\Logging]\n";

class LoggingSettingsTest : public test::SystemRootTest {
protected:
    void logging(const std::string& values) { writeRegistry(root(), kLoggingHeader + values); }
};

// A switch is read only as its own type: a value of another type, or none, leaves the
// switch's default (an empty text or a zero byte taken for a number would turn logging off).
TEST_F(LoggingSettingsTest, SwitchesFallBackToTheirDefaultsUnlessTypedRight) {
    const struct { std::string value; bool enabled; std::uint32_t retention; std::string level; } rows[] = {
        {"", true, 30, "info"},
        {"\"EnableUpdaterLogs\"=dword:00000000", false, 30, "info"},
        {"\"EnableUpdaterLogs\"=\"\"", true, 30, "info"},
        {"\"EnableUpdaterLogs\"=hex:00", true, 30, "info"},
        {"\"LogRetentionDays\"=dword:00000007", true, 7, "info"},
        {"\"LogRetentionDays\"=\"7\"", true, 30, "info"},
        {"\"LogLevel\"=\"warning\"", true, 30, "warning"},
        {"\"LogLevel\"=dword:00000001", true, 30, "info"},
        {"\"LogLevel\"=hex(2):65,00,72,00,72,00,6f,00,72,00,00,00", true, 30, "info"},  // "error", expandable
        {"\"LogLevel\"=hex(1):", true, 30, "info"},
    };
    for (const auto& row : rows) {
        logging(row.value + "\n");
        EXPECT_EQ(isUpdaterLoggingEnabled(), row.enabled) << row.value;
        EXPECT_EQ(readLoggingDword("LogRetentionDays", 30), row.retention) << row.value;
        EXPECT_EQ(readLoggingString("LogLevel", "info"), row.level) << row.value;
    }
}

// A log directory with files of given ages, and a logger that records what the clean-up says.
class LogCleanupTest : public LoggingSettingsTest {
protected:
    LogCleanupTest() { fs::create_directories(logDir()); }
    fs::path logDir() const { return root() / "logs"; }
    void addFile(const std::string& name, std::chrono::hours age) {
        writeFile(logDir() / name, "old line\n");
        fs::last_write_time(logDir() / name, fs::file_time_type::clock::now() - age - std::chrono::seconds(5));
    }
    std::vector<std::string> lines() const { return log_.lines(); }
    std::vector<std::string> remaining() const {
        std::vector<std::string> names;
        for (const auto& entry : fs::directory_iterator(logDir())) names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }
    void cleanup(const fs::path& dir) { cleanupOldLogs(dir.string(), log_.logger()); }
    static constexpr std::chrono::hours kDay{24};

    test::LogCapture log_;
};

// Only when asked for: then ".log" files past the retention at the top level go, and a
// missing folder is no error.
TEST_F(LogCleanupTest, WhenAskedRemovesOnlyOldDotLogFilesAtTopLevel) {
    addFile("old.log", 31 * kDay);
    addFile("recent.log", 29 * kDay);
    addFile("updater.log.1", 100 * kDay);
    addFile("SHOUT.LOG", 100 * kDay);
    addFile("sub/deep.log", 100 * kDay);
    const std::vector<std::string> all{"SHOUT.LOG", "old.log", "recent.log", "sub", "updater.log.1"};
    cleanup(logDir());
    EXPECT_EQ(remaining(), all);
    logging("\"CleanupOnStartup\"=\"1\"\n");
    cleanup(logDir());
    EXPECT_EQ(remaining(), all);
    EXPECT_TRUE(lines().empty());

    logging("\"CleanupOnStartup\"=dword:00000001\n");
    cleanup(root() / "nowhere");
    EXPECT_TRUE(lines().empty());
    cleanup(logDir());
    EXPECT_EQ(remaining(), (std::vector<std::string>{"SHOUT.LOG", "recent.log", "sub", "updater.log.1"}));
    EXPECT_TRUE(fs::exists(logDir() / "sub" / "deep.log"));
    EXPECT_EQ(lines(), (std::vector<std::string>{"[INFO] Cleaned up old log file: old.log",
                                                 "[INFO] Log cleanup completed: removed 1 old log files"}));
}

TEST_F(LogCleanupTest, ZeroRetentionRemovesEverythingAndOneStuckFileWarnsOnce) {
    logging("\"CleanupOnStartup\"=dword:00000001\n\"LogRetentionDays\"=dword:00000000\n");
    addFile("a.log", std::chrono::hours(0));
    addFile("b.log", std::chrono::hours(0));
    addFile("stuck.log", std::chrono::hours(0));
    test::ScopedImmutable stuck(logDir() / "stuck.log");
    if (!stuck.active()) GTEST_SKIP() << "the file system refuses the immutable attribute here";

    cleanup(logDir());
    EXPECT_EQ(remaining(), (std::vector<std::string>{"stuck.log"}));
    EXPECT_EQ(log_.count("[WARNING] Failed to remove log file " + (logDir() / "stuck.log").string() + ": "), 1u);
    EXPECT_EQ(lines().back(), "[INFO] Log cleanup completed: removed 2 old log files");
    EXPECT_EQ(lines().size(), 4u);
}

}  // namespace
}  // namespace velk::updater
