#include "app/settings.hpp"

#include <gtest/gtest.h>

#include "crypto/crypto_utils.hpp"
#include "installation/version_record.hpp"
#include "release/version_decision.hpp"
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
    const InstallationLayout layout("/opt/VELK");
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
    EXPECT_EQ(layout.downloadDirectory(), "/opt/VELK/.velk_downloads");
    EXPECT_EQ(makeFileUpdaterConfig(layout).layout.backupDirectory(), "/opt/VELK/backup");
    EXPECT_EQ(makeSelfUpdaterConfig(layout).installDirectory, "/opt/VELK");
}

TEST(VerifierSettings, DowngradesAreRefusedOnlyWhenDisabledAndNotForced) {
    UpdaterConfig options;
    options.channel = "test";
    EXPECT_TRUE(makeVerifierConfig(options, "1", "2", 7).allowDowngrades);
    options.disableDowngrades = true;
    const ManifestVerifierConfig refused = makeVerifierConfig(options, "1", "2", 7);
    EXPECT_FALSE(refused.allowDowngrades);
    EXPECT_EQ(refused.channel, "test");
    EXPECT_FALSE(refused.requireSignature);
    EXPECT_TRUE(refused.publicKeys.empty());
    EXPECT_FALSE(refused.allowRollback);
    EXPECT_FALSE(refused.ignoreRollout);
    EXPECT_EQ(refused.rolloutCohort, 7u);
    options.force = true;
    const ManifestVerifierConfig forced = makeVerifierConfig(options, "1", "2", 7);
    EXPECT_TRUE(forced.allowDowngrades && forced.allowRollback && forced.ignoreRollout);
    options.channel = "";
    EXPECT_EQ(makeVerifierConfig(options, "1", "2", 7).channel, "stable");
}

// A share of the fleet takes a release: each installation draws its cohort once, keeps it in
// its product record, and a larger share keeps everyone who was in.
TEST(StagedRollout, CohortsAreDrawnOnceKeptAndSplitTheFleet) {
    ASSERT_TRUE(CryptoUtils::initialize());
    constexpr int kRoots = 400;
    int inAtQuarter = 0;
    for (int i = 0; i < kRoots; ++i) {
        test::TempDir root;
        test::ScopedEnv env("VELK_SYSTEM_ROOT", root.str());
        test::writeRegistry(root.path(), std::string(test::kProductKeyHeader) + "\"Version\"=\"1.0.0\"\n");
        const std::uint32_t cohort = rolloutCohort();
        ASSERT_LT(cohort, kRolloutCohorts);
        EXPECT_EQ(rolloutCohort(), cohort) << "a second run draws again";
        EXPECT_EQ(getRolloutCohort(), cohort);
        const bool atQuarter = inRollout(cohort, 25);
        inAtQuarter += atQuarter ? 1 : 0;
        EXPECT_TRUE(!atQuarter || inRollout(cohort, 50)) << cohort;
        EXPECT_FALSE(inRollout(cohort, 0));
        EXPECT_TRUE(inRollout(cohort, 100));
    }
    EXPECT_GE(inAtQuarter, kRoots * 18 / 100);
    EXPECT_LE(inAtQuarter, kRoots * 32 / 100);

    // A cohort that is not one (another type, or out of range) is drawn again and kept.
    test::TempDir root;
    test::ScopedEnv env("VELK_SYSTEM_ROOT", root.str());
    test::writeRegistry(root.path(), std::string(test::kProductKeyHeader) + "\"RolloutCohort\"=dword:00002710\n");
    const std::uint32_t redrawn = rolloutCohort();
    EXPECT_LT(redrawn, kRolloutCohorts);
    EXPECT_EQ(getRolloutCohort(), redrawn);
    CryptoUtils::cleanup();
}

}  // namespace
}  // namespace velk::updater
