#include "installation/installation.hpp"

#include <gtest/gtest.h>

#include <chrono>
#include <ctime>
#include <iomanip>
#include <sstream>

#include "installation/logging_settings.hpp"
#include "installation/version_record.hpp"
#include "support/log_capture.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;
using test::kProductKeyHeader;
using test::readFile;
using test::writeFile;
using test::writeRegistry;

constexpr const char* kServicesKey = "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\";
constexpr const char* kLoggingHeader = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quenmark\\VELK\\Logging]\n";

class InstallationTest : public test::SystemRootTest {
protected:
    InstallationTest() { fs::create_directories(installDir()); }
    fs::path installDir() const { return root() / "install"; }
    void product(const std::string& values) { writeRegistry(root(), kProductKeyHeader + values + "\n"); }
    void logging(const std::string& values) { writeRegistry(root(), kLoggingHeader + values); }
    std::string registryText() const { return readFile(root() / "registry.reg"); }
};

// Names others rely on: the windowed updater swaps in "_temp" files, sweeps find leftovers.
TEST(InstallationLayout, EveryPathOfTheInstallationIsFormedFromItsFolder) {
    const InstallationLayout layout("/opt/VELK");
    EXPECT_EQ(layout.backupDirectory(), "/opt/VELK/backup");
    EXPECT_EQ(layout.writeTestFile(), "/opt/VELK/velk_updater_write_test.tmp");
    EXPECT_EQ(layout.productFile("VELK_Sys.inf"), "/opt/VELK/VELK_Sys.inf");
    EXPECT_EQ(layout.targetFile("drivers/VELK_Sys.sys"), "/opt/VELK/drivers/VELK_Sys.sys");
    EXPECT_EQ(InstallationLayout::stagingFile(layout.targetFile("VELK.dll")), "/opt/VELK/VELK.dll.staging");
    EXPECT_EQ(InstallationLayout::archiveFile(layout.downloadFile("VELK.dll")), "/opt/VELK/.velk_downloads/VELK.dll.tmp.zip");
    EXPECT_EQ(layout.selfUpdateFile("libcurl.dll"), "/opt/VELK/libcurl.dll_temp");
    EXPECT_EQ(InstallationLayout::partialFile(layout.selfUpdateFile("zlib1.dll")), "/opt/VELK/zlib1.dll_temp.partial");
    std::tm local{};
    std::istringstream("2025-03-05 14:03:07") >> std::get_time(&local, "%Y-%m-%d %H:%M:%S");
    local.tm_isdst = -1;
    const auto when = std::chrono::system_clock::from_time_t(std::mktime(&local)) + std::chrono::milliseconds(999);
    EXPECT_EQ(layout.backupFile("VELK.dll", when), "/opt/VELK/backup/VELK.dll_20250305_140307.bak");
}

// A value that is no text counts as none; "VELKInstalled" stands in for such a "Version".
TEST_F(InstallationTest, ProductRecordIsReadAsTextWithItsFallbacks) {
    const std::string fallback = (root() / "Program Files" / "VELK").string();
    const struct { std::string values, path, version, build; } rows[] = {
        {"", "", "", ""},
        {R"("InstallPath"="D:\\VELK\\\\")", "D:\\VELK", "", ""},
        {R"("InstallPath"="C:\\")", "C:", "", ""},
        // "/opt/v/", "1.0.5" and "42", each followed by two NULs, in the export's UTF-16 form.
        {"\"InstallPath\"=hex(1):2f,00,6f,00,70,00,74,00,2f,00,76,00,2f,00,00,00,00,00", "/opt/v", "", ""},
        {"\"Version\"=hex(1):31,00,2e,00,30,00,2e,00,35,00,00,00,00,00\n"
         "\"BuildNumber\"=hex(1):34,00,32,00,00,00,00,00", "", "1.0.5", "42"},
        {"\"InstallPath\"=dword:00000001\n\"Version\"=dword:00000001", "", "", ""},
        {"\"Version\"=\"2.0.0\"\n\"VELKInstalled\"=\"1.0.3\"\n\"BuildNumber\"=\"7\"", "", "2.0.0", "7"},
        {"\"Version\"=dword:00000001\n\"VELKInstalled\"=\"1.0.3\"\n\"BuildNumber\"=dword:00000007", "", "1.0.3", ""},
        {"\"VELKInstalled\"=\"1.0.3\"", "", "1.0.3", ""},
    };
    for (const auto& row : rows) {
        product(row.values);
        EXPECT_EQ(getRegistryInstallPath(), row.path) << row.values;
        EXPECT_EQ(getDefaultInstallDirectory(), row.path.empty() ? fallback : row.path) << row.values;
        EXPECT_EQ(getInstalledVersion(), row.version) << row.values;
        EXPECT_EQ(getInstalledBuildNumber(), row.build) << row.values;
    }
}

// The write test runs only once every required file is there, and leaves nothing behind.
TEST_F(InstallationTest, ProblemsAreReportedInOrderBeforeTheWriteTest) {
    const auto validate = [](const fs::path& dir) { return validateInstallation(InstallationLayout(dir.string())); };
    EXPECT_EQ(validate("").message, "Installation directory is empty");
    EXPECT_EQ(validate(root() / "absent").message, "Installation directory does not exist: " + (root() / "absent").string());
    writeFile(root() / "plain", "x");
    EXPECT_EQ(validate(root() / "plain").message, "Installation path is not a directory: " + (root() / "plain").string());
    writeFile(installDir() / "VELK_Service.exe", "x");
    const ValidationResult missing = validate(installDir());
    EXPECT_FALSE(missing.valid);
    EXPECT_EQ(missing.message, "Missing required VELK files in " + installDir().string() + ": VELK.dll, VELK_Launcher.exe");
    EXPECT_EQ(missing.missingItems, (std::vector<std::string>{"VELK.dll", "VELK_Launcher.exe"}));
    for (const char* name : {"VELK.dll", "VELK_Launcher.exe"}) writeFile(installDir() / name, "x");
    const ValidationResult complete = validate(installDir());
    EXPECT_TRUE(complete.valid);
    EXPECT_EQ(complete.message, "VELK installation validated successfully");
    EXPECT_FALSE(fs::exists(installDir() / "velk_updater_write_test.tmp"));
    {
        test::ScopedImmutable locked(installDir());
        if (!locked.active()) GTEST_SKIP() << "the file system refuses the immutable attribute here";
        EXPECT_EQ(validate(installDir()).message, "Installation directory is not writable: " + installDir().string());
    }
    // A test file that exists already and cannot be removed: it opens, the removal fails.
    writeFile(installDir() / "velk_updater_write_test.tmp", "");
    test::ScopedImmutable locked(installDir());
    const ValidationResult result = validate(installDir());
    EXPECT_FALSE(result.valid);
    EXPECT_EQ(result.message.rfind("Cannot write to installation directory " + installDir().string() + ": ", 0), 0u);
}

TEST_F(InstallationTest, ServicesCheckNamesWhatIsMissing) {
    const struct { std::string services, message; } rows[] = {
        {"", "Missing VELK services/drivers: VELKSvc service, VELK_Sys driver"},
        {"VELKSvc]\n", "Missing VELK services/drivers: VELK_Sys driver"},
        {"VELK_Sys]\n", "Missing VELK services/drivers: VELKSvc service"},
        {"VELKSvc]\n" + std::string(kServicesKey) + "VELK_Sys]\n", "VELK services and drivers validated successfully"},
    };
    for (const auto& row : rows) {
        writeRegistry(root(), row.services.empty() ? "" : kServicesKey + row.services);
        const ValidationResult result = validateServicesAndDrivers();
        EXPECT_EQ(result.message, row.message);
        EXPECT_EQ(result.valid, row.message.starts_with("VELK services"));
    }
}

// An omitted build is left alone; a registry that cannot be parsed is told apart from none.
TEST_F(InstallationTest, VersionIsWrittenOnlyUnderTheProductKey) {
    EXPECT_FALSE(setInstalledVersion("1.1.0", "7"));
    EXPECT_FALSE(fs::exists(root() / "registry.reg"));
    writeRegistry(root(), "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quenmark]\n");
    const std::string before = registryText();
    EXPECT_FALSE(setInstalledVersion("1.1.0", "7"));
    EXPECT_EQ(registryText(), before);
    EXPECT_FALSE(productRecordError());  // absent is an ordinary fresh installation

    product("\"BuildNumber\"=\"100\"");
    EXPECT_TRUE(setInstalledVersion("1.1.0", ""));
    EXPECT_EQ(getInstalledVersion() + " build " + getInstalledBuildNumber(), "1.1.0 build 100");
    EXPECT_NE(registryText().find("\"VELKInstalled\"=\"1.1.0\""), std::string::npos);
    EXPECT_TRUE(setInstalledVersion("", "101"));
    EXPECT_EQ(getInstalledVersion() + " build " + getInstalledBuildNumber(), "1.1.0 build 101");

    writeFile(root() / "registry.reg", "Windows Registry Editor Version 5.00\n" + std::string(kProductKeyHeader) + "\"Version\"=\"1.0.0\n");
    EXPECT_EQ(getInstalledVersion(), "");
    const auto error = productRecordError();
    ASSERT_TRUE(error);
    EXPECT_NE(error->find("registry.reg cannot be read or parsed (error 1009)"), std::string::npos) << *error;
    std::filesystem::remove(root() / "registry.reg");
    EXPECT_FALSE(productRecordError());
}

using LoggingSettingsTest = InstallationTest;

// An empty text or a zero byte taken for a number would turn logging off.
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

// Only when asked for: ".log" files past the retention at the top level go; a missing folder is no error.
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
    EXPECT_TRUE(log_.lines().empty());

    logging("\"CleanupOnStartup\"=dword:00000001\n");
    cleanup(root() / "nowhere");
    EXPECT_TRUE(log_.lines().empty());
    cleanup(logDir());
    EXPECT_EQ(remaining(), (std::vector<std::string>{"SHOUT.LOG", "recent.log", "sub", "updater.log.1"}));
    EXPECT_TRUE(fs::exists(logDir() / "sub" / "deep.log"));
    EXPECT_EQ(log_.lines(), (std::vector<std::string>{"[INFO] Cleaned up old log file: old.log",
                                                      "[INFO] Log cleanup completed: removed 1 old log files"}));
}

TEST_F(LogCleanupTest, ZeroRetentionRemovesEverythingAndOneStuckFileWarnsOnce) {
    logging("\"CleanupOnStartup\"=dword:00000001\n\"LogRetentionDays\"=dword:00000000\n");
    for (const char* name : {"a.log", "b.log", "stuck.log"}) addFile(name, std::chrono::hours(0));
    test::ScopedImmutable stuck(logDir() / "stuck.log");
    if (!stuck.active()) GTEST_SKIP() << "the file system refuses the immutable attribute here";

    cleanup(logDir());
    EXPECT_EQ(remaining(), (std::vector<std::string>{"stuck.log"}));
    EXPECT_EQ(log_.count("[WARNING] Failed to remove log file " + (logDir() / "stuck.log").string() + ": "), 1u);
    EXPECT_EQ(log_.lines().back(), "[INFO] Log cleanup completed: removed 2 old log files");
    EXPECT_EQ(log_.lines().size(), 4u);
}

}  // namespace
}  // namespace velk::updater
