#include "app/options.hpp"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/process_runner.hpp"
#include "support/test_support.hpp"

namespace velk::updater {
namespace {

struct Parsed {
    bool proceed = false;
    UpdaterConfig config;
    std::string out, err;
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

// Every form gives: switches set (c f d v q b s), level, channel, folder, manifest, configuration.
TEST(CommandLine, EachArgumentSetsOnlyItsOwnFieldAndTheLastOneWins) {
    const struct { std::vector<std::vector<std::string>> forms; std::string expected; } rows[] = {
        {{{}}, "|info|stable|||"},
        {{{"-c"}, {"--check-only"}}, "c|info|stable|||"},
        {{{"-f"}, {"--force"}}, "f|info|stable|||"},
        {{{"--disable-downgrades"}}, "d|info|stable|||"},
        {{{"-v"}, {"--verbose"}}, "v|debug|stable|||"},
        {{{"-q"}, {"--quiet"}}, "q|info|stable|||"},
        {{{"-b"}, {"--background"}}, "b|info|stable|||"},
        {{{"--install-services"}}, "s|info|stable|||"},
        {{{"-v", "--log-level", "warning"}}, "v|warning|stable|||"},
        {{{"--log-level", "warning", "-v"}}, "v|debug|stable|||"},
        {{{"--channel", "-q", "--install-dir", "/opt/VELK", "--manifest", "m.json", "--config", "c.ini", "--log-level", "",
           "--install-dir", "/srv/VELK"}}, "||-q|/srv/VELK|m.json|c.ini"},
    };
    for (const auto& row : rows) {
        for (const auto& args : row.forms) {
            const Parsed parsed = parse(args);
            const UpdaterConfig& c = parsed.config;
            std::string seen;
            for (const auto& [letter, set] : {std::pair{'c', c.checkOnly}, {'f', c.force}, {'d', c.disableDowngrades},
                                              {'v', c.verbose}, {'q', c.quiet}, {'b', c.background}, {'s', c.installServices}}) {
                if (set) seen += letter;
            }
            seen += "|" + c.logLevel + "|" + c.channel + "|" + c.installDir + "|" + c.manifestFile + "|" + c.configFile;
            EXPECT_TRUE(parsed.proceed && parsed.out.empty() && parsed.err.empty()) << row.expected;
            EXPECT_EQ(seen, row.expected) << ::testing::PrintToString(args);
        }
    }
}

// A wrong argument is named before the usage; either stops the parse, whatever follows.
TEST(CommandLine, UnknownArgumentsAndHelpStopWithTheUsage) {
    const std::string usage = parse({"-h"}).out;
    EXPECT_NE(usage.find("Usage: VELK_Updater [options]\n"), std::string::npos) << usage;
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
        EXPECT_EQ(parsed.out, usage) << row.args.back();
    }
}

TEST(ManifestUrl, StableAndEmptyShareTheMainManifestCaseSensitively) {
    const std::string base = updateBaseUrl();
    EXPECT_EQ(manifestUrlForChannel("stable"), base + "/manifest.json");
    EXPECT_EQ(manifestUrlForChannel(""), base + "/manifest.json");
    EXPECT_EQ(manifestUrlForChannel("STABLE"), base + "/manifest-STABLE.json");
    EXPECT_EQ(manifestUrlForChannel("Beta"), base + "/manifest-Beta.json");
    EXPECT_NE(base.back(), '/');
}

// A stand-in sudo declines or grants "-v", records each call's arguments and ends the copy with 7.
TEST(ElevatedRelaunch, GetsTheArgumentsUnchangedAndHandsBackItsExitCode) {
    namespace fs = std::filesystem;
    if (::geteuid() != 0) GTEST_SKIP() << "needs root to run the updater as another user";
    if (::getpwnam("nobody") == nullptr || !fs::exists("/usr/bin/setpriv")) GTEST_SKIP() << "no nobody or setpriv";
    const std::string program = test::builtProgram("VELK_Updater"), asking = "VELK Updater requires administrator "
                                                                              "privileges.\nRequesting elevation...\n";
    const std::vector<std::string> args{"--check-only", "--install-dir", "/opt/My VELK", "--channel", "",
                                        "--log-level", "say \"hi\""};
    std::vector<std::string> command{"--reuid=nobody", "--regid=nogroup", "--clear-groups", program};
    command.insert(command.end(), args.begin(), args.end());
    std::string relaunched = "-v\n-n\n--\n" + fs::canonical(program).string() + "\n";
    for (const std::string& arg : args) relaunched += arg + "\n";
    const struct { char prompt; int exitCode; std::string out, err, asked; } rows[] = {
        {'1', 1, asking, "Failed to elevate privileges: User cancelled UAC elevation prompt\n"
                         "Please run this program as Administrator.\n", "-v\n"},
        {'0', 7, asking + "Elevation request completed.\n", "", relaunched},
    };
    for (const auto& row : rows) {
        const test::TempDir dir;
        test::writeFile(dir / "sudo", std::string("#!/bin/sh\nprintf '%s\\n' \"$@\" >> \"$(dirname \"$0\")/asked\"\n"
                                                  "[ \"$1\" = \"-v\" ] && exit ") + row.prompt + "\nexit 7\n");
        fs::permissions(dir.path(), fs::perms::all);
        fs::permissions(dir / "sudo", fs::perms::all);
        const test::ProcessResult result =
            test::runProcess("/usr/bin/setpriv", command, test::ProcessOptions{{{"PATH", dir.str() + ":/usr/bin:/bin"}}, ""});
        EXPECT_EQ(result.exitCode, row.exitCode) << result.err;
        EXPECT_EQ(result.out, row.out);
        EXPECT_EQ(result.err, row.err);
        EXPECT_EQ(test::readFile(dir / "asked"), row.asked);
    }
}

}  // namespace
}  // namespace velk::updater
