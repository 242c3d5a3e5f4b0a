#include "app/options.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/process_runner.hpp"

namespace velk::updater {
namespace {

// The usage text as users see it, kept here as an independent copy.
const std::string kExpectedUsage =
    "VELK Update Client - Version 1.0.0\n"
    "Usage: VELK_Updater [options]\n"
    "\n"
    "Options:\n"
    "  -c, --check-only          Check for updates but don't install\n"
    "  -f, --force               Force update even if same version\n"
    "  --disable-downgrades      Disable downgrading to older versions (default: enabled)\n"
    "  -v, --verbose             Enable verbose logging\n"
    "  -q, --quiet               Suppress console output\n"
    "  -b, --background          Run in background mode\n"
    "  --install-services        Install VELK services if not present (don't start)\n"
    "  --config <file>           Configuration file path\n"
    "  --log-level <level>       Set log level (trace,debug,info,warning,error,critical)\n"
    "  --channel <channel>       Update channel (default: stable)\n"
    "                            - stable: manifest.json\n"
    "                            - test:   manifest-test.json\n"
    "                            - dev:    manifest-dev.json\n"
    "  --install-dir <path>      Installation directory\n"
    "  --manifest <file>         Use local manifest file for testing\n"
    "  -h, --help                Show this help message\n"
    "\n"
    "Examples:\n"
    "  VELK_Updater --check-only\n"
    "  VELK_Updater --force --verbose\n"
    "  VELK_Updater --disable-downgrades\n"
    "  VELK_Updater --channel test --verbose\n"
    "  VELK_Updater --install-services --quiet\n"
    "\n"
    "UI Version:\n"
    "  VELK_Updater.exe -c test       (use test channel)\n"
    "  VELK_Updater.exe --channel dev (use dev channel)\n";

struct Parsed {
    bool proceed = false;
    UpdaterConfig config;
    std::string out;
    std::string err;
};

Parsed parse(std::vector<std::string> args) {
    args.insert(args.begin(), "VELK_Updater");
    std::vector<char*> argv;
    for (auto& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);

    Parsed parsed;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    parsed.proceed = parseCommandLine(static_cast<int>(args.size()), argv.data(), parsed.config);
    parsed.err = testing::internal::GetCapturedStderr();
    parsed.out = testing::internal::GetCapturedStdout();
    return parsed;
}

TEST(CommandLine, NoArgumentsKeepsDefaults) {
    const Parsed parsed = parse({});
    ASSERT_TRUE(parsed.proceed);
    const UpdaterConfig& c = parsed.config;
    EXPECT_EQ(c.logLevel, "info");
    EXPECT_EQ(c.channel, "stable");
    EXPECT_TRUE(c.configFile.empty() && c.installDir.empty() && c.manifestFile.empty());
    EXPECT_TRUE(parsed.out.empty() && parsed.err.empty());
}

// Each switch, in each of its forms, sets its own field and no other.
TEST(CommandLine, EachSwitchSetsOnlyItsOwnField) {
    struct Row {
        std::vector<std::string> forms;
        bool UpdaterConfig::*field;
    };
    const std::vector<Row> rows{
        {{"-c", "--check-only"}, &UpdaterConfig::checkOnly}, {{"-f", "--force"}, &UpdaterConfig::force},
        {{"--disable-downgrades"}, &UpdaterConfig::disableDowngrades}, {{"-v", "--verbose"}, &UpdaterConfig::verbose},
        {{"-q", "--quiet"}, &UpdaterConfig::quiet}, {{"-b", "--background"}, &UpdaterConfig::background},
        {{"--install-services"}, &UpdaterConfig::installServices},
    };
    for (const Row& row : rows) {
        for (const std::string& form : row.forms) {
            const Parsed parsed = parse({form});
            ASSERT_TRUE(parsed.proceed) << form;
            for (const Row& other : rows) EXPECT_EQ(parsed.config.*other.field, &other == &row) << form;
        }
    }
}

TEST(CommandLine, VerboseAndLogLevelLastOneWins) {
    EXPECT_EQ(parse({"-v", "--log-level", "warning"}).config.logLevel, "warning");
    const Parsed later = parse({"--log-level", "warning", "-v"});
    EXPECT_EQ(later.config.logLevel, "debug");
    EXPECT_TRUE(later.config.verbose);
}

TEST(CommandLine, ValuesAreTakenAsGivenAndTheLastRepeatWins) {
    const Parsed parsed =
        parse({"--channel", "-q", "--install-dir", "/opt/VELK", "--manifest", "m.json",
               "--config", "c.ini", "--log-level", "", "--install-dir", "/srv/VELK"});
    ASSERT_TRUE(parsed.proceed);
    EXPECT_EQ(parsed.config.channel, "-q");
    EXPECT_FALSE(parsed.config.quiet);
    EXPECT_EQ(parsed.config.installDir, "/srv/VELK");
    EXPECT_EQ(parsed.config.manifestFile, "m.json");
    EXPECT_EQ(parsed.config.configFile, "c.ini");
    EXPECT_EQ(parsed.config.logLevel, "");
}

// A wrong argument is named before the usage; help shows the usage alone. Either stops the
// parse at once, whatever follows.
TEST(CommandLine, UnknownArgumentsAndHelpStopWithTheUsage) {
    const std::string usage = parse({"-h"}).out;
    ASSERT_FALSE(usage.empty());
    struct Row {
        std::vector<std::string> args;
        std::string err;
    };
    for (const Row& row : std::vector<Row>{
             {{"-c", "--config"}, "Unknown argument: --config\n"},
             {{"-c", "--log-level"}, "Unknown argument: --log-level\n"},
             {{"-c", "--channel"}, "Unknown argument: --channel\n"},
             {{"-c", "--install-dir"}, "Unknown argument: --install-dir\n"},
             {{"-c", "--manifest"}, "Unknown argument: --manifest\n"},
             {{"--channel=test", "-h"}, "Unknown argument: --channel=test\n"},
             {{"-C"}, "Unknown argument: -C\n"},  // option names are case-sensitive
             {{"-q", "--help", "--bogus"}, ""},
         }) {
        const Parsed parsed = parse(row.args);
        EXPECT_FALSE(parsed.proceed) << row.args.back();
        EXPECT_EQ(parsed.err, row.err);
        EXPECT_EQ(parsed.out, usage) << row.args.back();
    }
}

TEST(ManifestUrl, StableAndEmptyShareTheMainManifestCaseSensitively) {
    const std::string base = updateBaseUrl();
    EXPECT_EQ(manifestUrlForChannel("stable"), base + "/manifest.json");
    EXPECT_EQ(manifestUrlForChannel(""), base + "/manifest.json");
    EXPECT_EQ(manifestUrlForChannel("STABLE"), base + "/manifest-STABLE.json");
    EXPECT_EQ(manifestUrlForChannel("test"), base + "/manifest-test.json");
    EXPECT_EQ(manifestUrlForChannel("Beta"), base + "/manifest-Beta.json");
    EXPECT_NE(base.back(), '/');
}

TEST(Executable, HelpPrintsUsageByteForByteAndExitsWithOne) {
    const auto result = test::runProcess(test::builtProgram("VELK_Updater"), {"--help"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.out, kExpectedUsage);
    EXPECT_EQ(result.err, "");
}

}  // namespace
}  // namespace velk::updater
