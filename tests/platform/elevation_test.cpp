#include "platform/elevation.hpp"

#include <gtest/gtest.h>

#include <unistd.h>

#include <string>
#include <vector>

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

TEST(Elevation, RootIsAlreadyElevatedAndStartsNothing) {
    if (::geteuid() != 0) GTEST_SKIP() << "needs to run as root";
    EXPECT_TRUE(isProcessElevated());
    const ElevationResult result = requestElevation("/bin/false", "", true);
    EXPECT_TRUE(result.success);
    EXPECT_TRUE(result.alreadyElevated);
    EXPECT_EQ(result.message, "Process is already elevated");
    EXPECT_EQ(result.exitCode, 0u);
}

TEST(SystemError, KnownAndUnknownCodes) {
    EXPECT_EQ(formatSystemError(2), "No such file or directory");
    EXPECT_EQ(formatSystemError(987654), "Unknown error (code: 987654)");
}

TEST(Utf8ToWide, DecodesMultibyteText) {
    EXPECT_EQ(utf8ToWide(""), L"");
    EXPECT_EQ(utf8ToWide("C:\\Spiele\\\xC3\xBC\xE2\x82\xAC"), L"C:\\Spiele\\\u00FC\u20AC");
}

}  // namespace
}  // namespace velk::updater::platform
