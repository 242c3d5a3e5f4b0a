#include "platform/elevation.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include "support/test_support.hpp"

namespace velk::updater::platform {
namespace {

std::string argumentText(std::vector<std::string> args) {
    args.insert(args.begin(), "VELK_Updater");
    std::vector<char*> argv;
    for (auto& arg : args) argv.push_back(arg.data());
    return buildArgumentText(static_cast<int>(argv.size()), argv.data());
}

TEST(ArgumentText, QuotesOnlyArgumentsWithBlanks) {
    EXPECT_EQ(argumentText({"--install-dir", "C:\\Program Files\\VELK", "--quiet"}),
              "--install-dir \"C:\\Program Files\\VELK\" --quiet");
    EXPECT_EQ(argumentText({}), "");
    // Tabs and quotes pass unchanged; an empty argument adds only its separator.
    EXPECT_EQ(argumentText({"a\tb", "say\"hi\"", "", "z"}), "a\tb say\"hi\"  z");
}

// A stand-in sudo records each call's words and declines or grants "-v"; what it starts ends
// with 7. Words split at blanks outside quotes, none empty. Root asks for nothing.
TEST(Elevation, SudoIsAskedFirstThenGetsTheWordsOfTheArgumentText) {
    const std::string program = "/opt/VELK/VELK_Updater";
    // prompt: the stand-in's exit code for "-v"; none: no sudo at all.
    const struct { const char* prompt; std::string arguments, asked; std::uint32_t errorCode, exitCode; } rows[] = {
        {"1", "--quiet", "-v\n", 1223, 0},
        {"0", "  --install-dir  \"/opt/My VELK\"   -q ", "-v\n-n\n--\n" + program + "\n--install-dir\n/opt/My VELK\n-q\n", 0, 7},
        {"0", "", "-v\n-n\n--\n" + program + "\n", 0, 7},
        {nullptr, "--quiet", "", 2, 0},
    };
    for (const auto& row : rows) {
        const test::TempDir dir;
        const test::ScopedEnv path("PATH", dir.str());
        if (row.prompt != nullptr) {
            test::writeFile(dir / "sudo", "#!/bin/sh\nprintf '%s\\n' \"$@\" >> \"${0%/*}/asked\"\n[ \"$1\" = -v ] && exit " +
                                              std::string(row.prompt) + "\nexit 7\n");
            std::filesystem::permissions(dir / "sudo", std::filesystem::perms::owner_all);
        }
        EXPECT_TRUE(::geteuid() != 0 || requestElevation(program, row.arguments, true).alreadyElevated);
        const ElevationResult result = startElevated(program, row.arguments, true);
        EXPECT_EQ(result.success, row.errorCode == 0) << row.arguments;
        EXPECT_EQ(result.errorCode, row.errorCode) << row.arguments;
        EXPECT_EQ(result.exitCode, row.exitCode) << row.arguments;
        EXPECT_EQ(std::filesystem::exists(dir / "asked") ? test::readFile(dir / "asked") : "", row.asked);
    }
}

TEST(SystemText, ErrorCodesAndWideText) {
    EXPECT_EQ(formatSystemError(2), "No such file or directory");
    EXPECT_EQ(formatSystemError(987654), "Unknown error (code: 987654)");
    EXPECT_EQ(utf8ToWide(""), L"");
    EXPECT_EQ(utf8ToWide("C:\\Spiele\\\xC3\xBC\xE2\x82\xAC"), L"C:\\Spiele\\\u00FC\u20AC");
}

}  // namespace
}  // namespace velk::updater::platform
