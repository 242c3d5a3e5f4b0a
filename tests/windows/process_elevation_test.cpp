// Process facts and the elevation request through the shell's "runas" verb.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/elevation.hpp"
#include "platform/known_folders.hpp"
#include "platform/process.hpp"
#include "windows/windows_support.hpp"

namespace velk::updater::platform {
namespace {

TEST(ProcessTest, ExecutablePathAndProgramFilesComeFromTheSystem) {
    const std::string path = executablePath();
    EXPECT_TRUE(path.ends_with("\\test_windows.exe")) << path;
    EXPECT_TRUE(std::filesystem::exists(path)) << path;

    const auto programFiles = programFilesFolder();
    ASSERT_TRUE(programFiles.has_value());
    EXPECT_EQ(*programFiles, "C:\\Program Files");
    EXPECT_EQ(joinPath(*programFiles, "VELK"), "C:\\Program Files\\VELK");
}

TEST(ElevationTest, RunasStartsTheProgramAndHandsBackItsExitCode) {
    char system[MAX_PATH] = {};
    ASSERT_GT(GetSystemDirectoryA(system, MAX_PATH), 0u);
    const std::string cmd = std::string(system) + "\\cmd.exe";

    const ElevationResult waited = startElevated(cmd, "/c exit 7", true);
    ASSERT_TRUE(waited.success) << waited.message;
    EXPECT_EQ(waited.message, "Elevation request successful");
    EXPECT_EQ(waited.exitCode, 7u);

    const ElevationResult missing = startElevated(cmd + ".missing", "", true);
    EXPECT_FALSE(missing.success);
    EXPECT_NE(missing.errorCode, 0u);
    EXPECT_EQ(missing.message, "Failed to request elevation: " + formatSystemError(missing.errorCode));
}

TEST(ElevationTest, ElevatedProcessStartsNothing) {
    if (!isProcessElevated()) GTEST_SKIP() << "this test needs an elevated process";
    const ElevationResult result = requestElevation("C:\\nothing.exe", "", true);
    EXPECT_TRUE(result.success);
    EXPECT_TRUE(result.alreadyElevated);
    EXPECT_EQ(result.message, "Process is already elevated");
}

TEST(ElevationTest, UnelevatedProcessIsSeenAsSuch) {
    if (test::runningUnderWine()) GTEST_SKIP() << "Wine runs every process elevated: no unelevated token exists";
    if (isProcessElevated()) GTEST_SKIP() << "run from an unelevated prompt to check the unelevated path";
    HANDLE token = nullptr;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token));
    TOKEN_ELEVATION elevation{};
    DWORD size = 0;
    ASSERT_TRUE(GetTokenInformation(token, TokenElevation, &elevation, sizeof(elevation), &size));
    CloseHandle(token);
    EXPECT_EQ(elevation.TokenIsElevated, 0u);
}

}  // namespace
}  // namespace velk::updater::platform
