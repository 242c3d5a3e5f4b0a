#include "app/settings.hpp"

#include <gtest/gtest.h>

#include "crypto/crypto_utils.hpp"
#include "installation/version_record.hpp"
#include "release/version_decision.hpp"
#include "support/http_test_server.hpp"
#include "support/log_capture.hpp"
#include "support/manifest_entry.hpp"

namespace velk::updater {
namespace {

using SettingsTest = test::SystemRootTest;

// Level names are case-sensitive (unknown: INFO); the command line's beats the registry's.
TEST_F(SettingsTest, LoggerConfigFollowsOptionsAndRegistry) {
    const struct { bool quiet, background; std::string level, registry; std::uint32_t sinks; LogLevel minLevel; } rows[] = {
        {false, false, "", "", 15, LogLevel::Info},
        {true, true, "Warning", "", 6, LogLevel::Info},
        {false, false, "critical", "\"LogLevel\"=\"error\"", 15, LogLevel::Critical},
        {false, true, "", "\"LogLevel\"=\"error\"", 15, LogLevel::Error},
        {false, false, "", "\"EnableUpdaterLogs\"=dword:00000000", 0, LogLevel::Info},
    };
    for (const auto& row : rows) {
        test::writeRegistry(root(), "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quenmark\\VELK\\Logging]\n" + row.registry + "\n");
        UpdaterConfig options;
        options.quiet = row.quiet;
        options.background = row.background;
        options.logLevel = row.level;
        const LoggerConfig config = makeLoggerConfig(options, InstallationLayout("/opt/VELK"));
        SCOPED_TRACE(row.level + row.registry);
        EXPECT_EQ(config.sinks, row.sinks);
        EXPECT_EQ(config.minLevel, row.minLevel);
        EXPECT_EQ(config.useColors, !row.background || row.sinks == 0);
        EXPECT_EQ(config.logFilePath, row.sinks == 0 ? "" : "/opt/VELK/logs/updater.log");
        EXPECT_TRUE(config.asyncMode);
        EXPECT_EQ(config.maxFileSize, LoggerConfig().maxFileSize);
    }
}

// Timeouts are read from the settings (seen at work, each would take its whole length); the waits
// (1 s doubling up to 15 s, less at most half; Retry-After up to 60 s) come from the run's policy.
TEST(RunSettings, LimitsAndWaitsAreThePromisedOnes) {
    const HttpConfig http = makeHttpConfig();
    const TransferPolicy policy = makeFileUpdaterConfig(InstallationLayout("/opt/VELK")).transfer;
    const struct { const char* what; std::uint64_t value, promised; } rows[] = {
        {"connect timeout, s", http.connectTimeoutSeconds, 30},
        {"request timeout, s", http.requestTimeoutSeconds, 60},
        {"retry budget, s", static_cast<std::uint64_t>(policy.retryBudget.count() / 1000), 120},
        {"speed floor, bytes/s", policy.minBytesPerSecond, 32 * 1024},
        {"speed window, s", policy.slowWindowSeconds, 20},
    };
    for (const auto& row : rows) EXPECT_EQ(row.value, row.promised) << row.what;
    const auto wait = [&policy](std::uint32_t retry, const std::string& retryAfter, double fraction) {
        return std::to_string(retryDelay(policy, retry, retryAfter, fraction).count()) + " ";
    };
    std::string waits;  // retries 0, 1, 2, 4 and 40; then with a random part
    for (const std::uint32_t retry : {0u, 1u, 2u, 4u, 40u}) waits += wait(retry, "", 0);
    EXPECT_EQ(waits + wait(1, "", 0.5) + wait(3, "", 0.999), "1000 2000 4000 15000 15000 1500 4004 ");
    std::string asked;  // anything but a number of seconds leaves the doubled wait
    for (const char* retryAfter : {"7", "120", "0", "Wed, 21 Oct 2015 07:28:00 GMT", "-5", "1234567890"}) asked += wait(2, retryAfter, 0.5);
    EXPECT_EQ(asked, "7000 60000 0 3000 3000 3000 ");
}

// Through the run's own settings, with only the waits shortened; the archive's 404 is asked once.
TEST_F(SettingsTest, TransientFailureIsTriedThreeMoreTimes) {
    ASSERT_TRUE(CryptoUtils::initialize());
    test::HttpTestServer server;
    server.set("/cdn/files/VELK.dll", "busy", 503);
    FileUpdaterConfig config = makeFileUpdaterConfig(InstallationLayout((root() / "install").string()));
    config.baseUrls = {server.url("/cdn")};
    config.transfer.firstDelay = config.transfer.maxDelay = std::chrono::milliseconds(1);
    HttpClient http(makeHttpConfig());
    ASSERT_TRUE(http.initialize());
    test::LogCapture log;
    FileUpdater updater(config, http, log.logger());
    ASSERT_TRUE(updater.initialize());
    Manifest manifest;
    manifest.files = {test::entry("VELK.dll", "library")};
    testing::internal::CaptureStdout();
    EXPECT_FALSE(updater.updateFiles(manifest, {}).at(0).success);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("[HTTP DEBUG] Status Code: 503\n"), std::string::npos);
    EXPECT_EQ(server.requests(), (std::vector<std::string>{"/cdn/files/VELK.dll.zip", "/cdn/files/VELK.dll", "/cdn/files/VELK.dll",
                                                            "/cdn/files/VELK.dll", "/cdn/files/VELK.dll"}));
    EXPECT_EQ(server.lastHeader("User-Agent"), "VELK-Updater/1.0.0");
    CryptoUtils::cleanup();
}

// Every component gets its folders from this one layout.
TEST_F(SettingsTest, InstallationComesFromTheOptionsElseTheRegistry) {
    test::writeRegistry(root(), std::string(test::kProductKeyHeader) + "\"InstallPath\"=\"/srv/VELK/\"\n");
    UpdaterConfig options;
    EXPECT_EQ(makeInstallationLayout(options).installDirectory(), "/srv/VELK");
    options.installDir = "/opt/VELK";
    const InstallationLayout layout = makeInstallationLayout(options);
    EXPECT_EQ(layout.installDirectory(), "/opt/VELK");
    EXPECT_EQ(makeFileUpdaterConfig(layout).layout.backupDirectory(), "/opt/VELK/backup");
    EXPECT_EQ(makeSelfUpdaterConfig(layout).installDirectory, "/opt/VELK");
}

TEST(VerifierSettings, DowngradesAreRefusedOnlyWhenDisabledAndNotForced) {
    UpdaterConfig options;
    options.channel = "test";
    EXPECT_TRUE(makeVerifierConfig(options, "1", "2", 7).allowDowngrades);
    options.disableDowngrades = true;
    const ManifestVerifierConfig refused = makeVerifierConfig(options, "1", "2", 7);
    EXPECT_FALSE(refused.allowDowngrades || refused.allowRollback || refused.ignoreRollout || refused.requireSignature);
    EXPECT_TRUE(refused.channel == "test" && refused.publicKeys.empty() && refused.rolloutCohort == 7u);
    options.force = true;
    const ManifestVerifierConfig forced = makeVerifierConfig(options, "1", "2", 7);
    EXPECT_TRUE(forced.allowDowngrades && forced.allowRollback && forced.ignoreRollout);
    options.channel = "";
    EXPECT_EQ(makeVerifierConfig(options, "1", "2", 7).channel, "stable");
}

// A larger share keeps everyone who was in (cohorts kept across runs: end to end). A kept cohort
// that is not one (every other record holds 10000) is drawn again.
TEST(StagedRollout, CohortsAreDrawnOnceKeptAndSplitTheFleet) {
    ASSERT_TRUE(CryptoUtils::initialize());
    constexpr int kRoots = 400;
    int inAtQuarter = 0;
    for (int i = 0; i < kRoots; ++i) {
        test::TempDir root;
        test::ScopedEnv env("VELK_SYSTEM_ROOT", root.str());
        const char* record =
            i % 2 == 0 ? "\"Version\"=\"1.0.0\"\n" : "\"RolloutCohort\"=dword:00002710\n";
        test::writeRegistry(root.path(), test::kProductKeyHeader + std::string(record));
        const std::uint32_t cohort = rolloutCohort();
        ASSERT_LT(cohort, kRolloutCohorts);
        EXPECT_EQ(getRolloutCohort(), cohort);
        const bool atQuarter = inRollout(cohort, 25);
        inAtQuarter += atQuarter ? 1 : 0;
        EXPECT_TRUE(!atQuarter || inRollout(cohort, 50)) << cohort;
        EXPECT_FALSE(inRollout(cohort, 0));
        EXPECT_TRUE(inRollout(cohort, 100));
    }
    EXPECT_TRUE(inRollout(2499, 25) && !inRollout(2500, 25));  // a share takes the cohorts below it, no more
    // Six standard deviations either side of a quarter: a fair draw never misses, half the range does.
    EXPECT_GE(inAtQuarter, kRoots * 12 / 100);
    EXPECT_LE(inAtQuarter, kRoots * 40 / 100);
    CryptoUtils::cleanup();
}

}  // namespace
}  // namespace velk::updater
