#include "app/options.hpp"

#include <gtest/gtest.h>

#include <string>
#include <vector>


namespace velk::updater {
namespace {

// The usage text as users see it, kept here as an independent copy. (The program's exit
// code for it, 1, is checked end to end.)
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

// Each switch form sets its own field only; values are taken as given; the last one wins.
// Expected: switches set (c f d v q b s), level, channel, folder, manifest, configuration.
TEST(CommandLine, EachArgumentSetsOnlyItsOwnFieldAndTheLastOneWins) {
    const struct { std::vector<std::string> args; std::string expected; } rows[] = {
        {{}, "|info|stable|||"},
        {{"-c"}, "c|info|stable|||"},
        {{"--check-only"}, "c|info|stable|||"},
        {{"-f"}, "f|info|stable|||"},
        {{"--force"}, "f|info|stable|||"},
        {{"--disable-downgrades"}, "d|info|stable|||"},
        {{"-v"}, "v|debug|stable|||"},
        {{"--verbose"}, "v|debug|stable|||"},
        {{"-q"}, "q|info|stable|||"},
        {{"--quiet"}, "q|info|stable|||"},
        {{"-b"}, "b|info|stable|||"},
        {{"--background"}, "b|info|stable|||"},
        {{"--install-services"}, "s|info|stable|||"},
        {{"-v", "--log-level", "warning"}, "v|warning|stable|||"},
        {{"--log-level", "warning", "-v"}, "v|debug|stable|||"},
        {{"--channel", "-q", "--install-dir", "/opt/VELK", "--manifest", "m.json", "--config", "c.ini", "--log-level", "",
          "--install-dir", "/srv/VELK"}, "||-q|/srv/VELK|m.json|c.ini"},
    };
    for (const auto& row : rows) {
        const Parsed parsed = parse(row.args);
        const UpdaterConfig& c = parsed.config;
        std::string seen;
        for (const auto& [letter, set] : {std::pair{'c', c.checkOnly}, {'f', c.force}, {'d', c.disableDowngrades},
                                          {'v', c.verbose}, {'q', c.quiet}, {'b', c.background}, {'s', c.installServices}}) {
            if (set) seen += letter;
        }
        seen += "|" + c.logLevel + "|" + c.channel + "|" + c.installDir + "|" + c.manifestFile + "|" + c.configFile;
        EXPECT_TRUE(parsed.proceed && parsed.out.empty() && parsed.err.empty()) << row.expected;
        EXPECT_EQ(seen, row.expected);
    }
}

// A wrong argument is named before the usage; help shows the usage alone. Either stops the
// parse at once, whatever follows.
TEST(CommandLine, UnknownArgumentsAndHelpStopWithTheUsage) {
    ASSERT_EQ(parse({"-h"}).out, kExpectedUsage);
    const struct { std::vector<std::string> args; std::string err; } rows[] = {
        {{"-c", "--config"}, "Unknown argument: --config\n"},
        {{"-c", "--log-level"}, "Unknown argument: --log-level\n"},
        {{"-c", "--channel"}, "Unknown argument: --channel\n"},
        {{"-c", "--install-dir"}, "Unknown argument: --install-dir\n"},
        {{"-c", "--manifest"}, "Unknown argument: --manifest\n"},
        {{"--channel=test", "-h"}, "Unknown argument: --channel=test\n"},
        {{"-C"}, "Unknown argument: -C\n"},  // option names are case-sensitive
        {{"-q", "--help", "--bogus"}, ""},
    };
    for (const auto& row : rows) {
        const Parsed parsed = parse(row.args);
        EXPECT_FALSE(parsed.proceed) << row.args.back();
        EXPECT_EQ(parsed.err, row.err);
        EXPECT_EQ(parsed.out, kExpectedUsage) << row.args.back();
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

}  // namespace
}  // namespace velk::updater
