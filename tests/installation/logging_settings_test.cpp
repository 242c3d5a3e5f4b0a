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

TEST_F(LoggingSettingsTest, SwitchesFallBackToDefaultsUnlessTypedRight) {
    EXPECT_TRUE(isUpdaterLoggingEnabled());
    EXPECT_EQ(readLoggingDword("LogRetentionDays", 30), 30u);
    EXPECT_EQ(readLoggingString("LogLevel", "info"), "info");

    logging("\"EnableUpdaterLogs\"=\"0\"\n\"LogLevel\"=dword:00000001\n\"LogRetentionDays\"=dword:00000007\n");
    EXPECT_TRUE(isUpdaterLoggingEnabled());  // text, not a number: the default applies
    EXPECT_EQ(readLoggingString("LogLevel", "info"), "info");
    EXPECT_EQ(readLoggingDword("LogRetentionDays", 30), 7u);

    logging("\"EnableUpdaterLogs\"=dword:00000000\n\"LogLevel\"=\"warning\"\n\"Empty\"=hex(1):\n");
    EXPECT_FALSE(isUpdaterLoggingEnabled());
    EXPECT_EQ(readLoggingString("LogLevel", "info"), "warning");
    EXPECT_EQ(readLoggingString("Empty", "fallback"), "fallback");
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

TEST_F(LogCleanupTest, NothingHappensUnlessEnabled) {
    addFile("ancient.log", 400 * kDay);
    cleanup(logDir());
    EXPECT_EQ(remaining(), (std::vector<std::string>{"ancient.log"}));
    EXPECT_TRUE(lines().empty());
}

TEST_F(LogCleanupTest, DefaultRetentionRemovesOnlyOldDotLogFilesAtTopLevel) {
    logging("\"CleanupOnStartup\"=dword:00000001\n");
    addFile("old.log", 31 * kDay);
    addFile("recent.log", 29 * kDay);
    addFile("updater.log.1", 100 * kDay);
    addFile("SHOUT.LOG", 100 * kDay);
    addFile("sub/deep.log", 100 * kDay);
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
    const auto logged = lines();
    const std::string warning = "[WARNING] Failed to remove log file " + (logDir() / "stuck.log").string() + ": ";
    EXPECT_EQ(std::count_if(logged.begin(), logged.end(),
                            [&](const std::string& line) { return line.rfind(warning, 0) == 0; }),
              1);
    EXPECT_EQ(logged.back(), "[INFO] Log cleanup completed: removed 2 old log files");
    EXPECT_EQ(logged.size(), 4u);
}

TEST_F(LogCleanupTest, MissingDirectoryIsNotAnError) {
    logging("\"CleanupOnStartup\"=dword:00000001\n");
    cleanup(root() / "nowhere");
    EXPECT_TRUE(lines().empty());
}

}  // namespace
}  // namespace velk::updater
