// Process facts and the elevation request through the shell's "runas" verb.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/elevation.hpp"
#include "platform/known_folders.hpp"
#include "platform/paths.hpp"
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

}  // namespace
}  // namespace velk::updater::platform
