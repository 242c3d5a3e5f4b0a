#include "app/options.hpp"

#include <gtest/gtest.h>

#include <initializer_list>
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

Parsed parse(std::initializer_list<const char*> args) {
    std::vector<std::string> texts{"VELK_Updater"};
    texts.insert(texts.end(), args.begin(), args.end());
    std::vector<char*> argv;
    for (auto& text : texts) argv.push_back(text.data());
    argv.push_back(nullptr);

    Parsed parsed;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    parsed.proceed = parseCommandLine(static_cast<int>(texts.size()), argv.data(), parsed.config);
    parsed.err = testing::internal::GetCapturedStderr();
    parsed.out = testing::internal::GetCapturedStdout();
    return parsed;
}

TEST(CommandLine, NoArgumentsKeepsDefaults) {
    const Parsed parsed = parse({});
    ASSERT_TRUE(parsed.proceed);
    const UpdaterConfig& c = parsed.config;
    EXPECT_FALSE(c.checkOnly || c.force || c.disableDowngrades || c.verbose || c.quiet ||
                 c.background || c.installServices);
    EXPECT_EQ(c.logLevel, "info");
    EXPECT_EQ(c.channel, "stable");
    EXPECT_TRUE(c.configFile.empty() && c.installDir.empty() && c.manifestFile.empty());
    EXPECT_TRUE(parsed.out.empty() && parsed.err.empty());
}

TEST(CommandLine, EveryFlagInShortAndLongForm) {
    for (auto args : {std::vector<const char*>{"-c", "-f", "-v", "-q", "-b"},
                      std::vector<const char*>{"--check-only", "--force", "--verbose", "--quiet",
                                               "--background"}}) {
        std::vector<std::string> texts{"VELK_Updater"};
        texts.insert(texts.end(), args.begin(), args.end());
        texts.push_back("--disable-downgrades");
        texts.push_back("--install-services");
        std::vector<char*> argv;
        for (auto& text : texts) argv.push_back(text.data());
        UpdaterConfig c;
        ASSERT_TRUE(parseCommandLine(static_cast<int>(argv.size()), argv.data(), c));
        EXPECT_TRUE(c.checkOnly && c.force && c.disableDowngrades && c.verbose && c.quiet &&
                    c.background && c.installServices);
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

TEST(CommandLine, ValueOptionWithoutValueIsUnknown) {
    for (const char* option : {"--config", "--log-level", "--channel", "--install-dir", "--manifest"}) {
        const Parsed parsed = parse({"-c", option});
        EXPECT_FALSE(parsed.proceed) << option;
        EXPECT_EQ(parsed.err, std::string("Unknown argument: ") + option + "\n");
        EXPECT_EQ(parsed.out, kExpectedUsage);
    }
}

TEST(CommandLine, UnknownArgumentStopsBeforeLaterHelp) {
    const Parsed parsed = parse({"--channel=test", "-h"});
    EXPECT_FALSE(parsed.proceed);
    EXPECT_EQ(parsed.err, "Unknown argument: --channel=test\n");
    EXPECT_EQ(parsed.out, kExpectedUsage);
    // Option names are case-sensitive.
    EXPECT_EQ(parse({"-C"}).err, "Unknown argument: -C\n");
}

TEST(CommandLine, HelpStopsAndIgnoresWhatFollows) {
    const Parsed parsed = parse({"-q", "--help", "--bogus"});
    EXPECT_FALSE(parsed.proceed);
    EXPECT_EQ(parsed.out, kExpectedUsage);
    EXPECT_TRUE(parsed.err.empty());
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

TEST(Executable, MissingValueReportsUnknownArgumentAndExitsWithOne) {
    const auto result = test::runProcess(test::builtProgram("VELK_Updater"), {"--channel"});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.err, "Unknown argument: --channel\n");
    EXPECT_EQ(result.out, kExpectedUsage);
}

}  // namespace
}  // namespace velk::updater
