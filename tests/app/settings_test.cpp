#include "app/settings.hpp"

#include <gtest/gtest.h>

#include "support/test_support.hpp"

namespace velk::updater {
namespace {

class SettingsTest : public test::SystemRootTest {
protected:
    void logging(const std::string& values) {
        test::writeRegistry(root(), "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quenmark\\VELK\\Logging]\n" + values);
    }
};

TEST_F(SettingsTest, LoggerConfigFollowsOptionsAndRegistry) {
    const InstallationLayout layout("/opt/VELK", "/tmp");
    UpdaterConfig options;
    LoggerConfig config = makeLoggerConfig(options, layout);
    EXPECT_EQ(config.sinks, 15u);
    EXPECT_EQ(config.minLevel, LogLevel::Info);
    EXPECT_EQ(config.logFilePath, "/opt/VELK/logs/updater.log");
    EXPECT_TRUE(config.useColors);
    EXPECT_TRUE(config.asyncMode);
    EXPECT_EQ(config.maxFileSize, LoggerConfig().maxFileSize);

    options.quiet = true;
    options.background = true;
    options.logLevel = "Warning";  // case matters: unknown names keep INFO
    config = makeLoggerConfig(options, layout);
    EXPECT_EQ(config.sinks, 6u);
    EXPECT_FALSE(config.useColors);
    EXPECT_EQ(config.minLevel, LogLevel::Info);

    logging("\"LogLevel\"=\"error\"\n");
    options.logLevel = "critical";
    EXPECT_EQ(makeLoggerConfig(options, layout).minLevel, LogLevel::Critical);
    options.logLevel = "";
    EXPECT_EQ(makeLoggerConfig(options, layout).minLevel, LogLevel::Error);

    logging("\"EnableUpdaterLogs\"=dword:00000000\n");
    config = makeLoggerConfig(options, layout);
    EXPECT_EQ(config.sinks, 0u);
    EXPECT_TRUE(config.logFilePath.empty());
}

// The run's installation is the folder named on the command line, else the registered one;
// every component gets its folders from this one layout.
TEST_F(SettingsTest, InstallationComesFromTheOptionsElseTheRegistry) {
    test::writeRegistry(root(), std::string(test::kProductKeyHeader) + "\"InstallPath\"=\"/srv/VELK/\"\n");
    UpdaterConfig options;
    EXPECT_EQ(makeInstallationLayout(options).installDirectory(), "/srv/VELK");
    options.installDir = "/opt/VELK";
    const InstallationLayout layout = makeInstallationLayout(options);
    EXPECT_EQ(layout.installDirectory(), "/opt/VELK");
    EXPECT_EQ(layout.downloadDirectory(), std::filesystem::temp_directory_path().string());
    EXPECT_EQ(makeFileUpdaterConfig(layout).layout.backupDirectory(), "/opt/VELK/backup");
    EXPECT_EQ(makeSelfUpdaterConfig(layout).installDirectory, "/opt/VELK");
}

TEST(VerifierSettings, DowngradesAreRefusedOnlyWhenDisabledAndNotForced) {
    UpdaterConfig options;
    options.channel = "test";
    EXPECT_TRUE(makeVerifierConfig(options, "1", "2").allowDowngrades);
    options.disableDowngrades = true;
    const ManifestVerifierConfig refused = makeVerifierConfig(options, "1", "2");
    EXPECT_FALSE(refused.allowDowngrades);
    EXPECT_EQ(refused.channel, "test");
    EXPECT_FALSE(refused.requireSignature);
    EXPECT_TRUE(refused.publicKey.empty());
    EXPECT_FALSE(refused.allowRollback);
    options.force = true;
    EXPECT_TRUE(makeVerifierConfig(options, "1", "2").allowDowngrades);
    EXPECT_TRUE(makeVerifierConfig(options, "1", "2").allowRollback);
}

}  // namespace
}  // namespace velk::updater
