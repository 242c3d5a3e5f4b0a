// VELK_Updater.exe under Wine: plain and patched updates, the product record in the prefix's
// registry, and the missing service registered through its service manager.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "e2e/e2e_fixture.hpp"

namespace velk::test {
namespace {

constexpr const char* kProductKey = "HKLM\\SOFTWARE\\Quenmark\\VELK";
constexpr const char* kServiceKey = "HKLM\\SYSTEM\\CurrentControlSet\\Services\\VELKSvc";

// Z: is the Linux root in every Wine prefix.
std::string windowsPath(const fs::path& path) {
    std::string text = "Z:" + path.string();
    std::replace(text.begin(), text.end(), '/', '\\');
    return text;
}

class WineUpdateTest : public EndToEndTest {
protected:
    void SetUp() override {
        const char* build = std::getenv("VELK_WINDOWS_BUILD");
        if (build == nullptr || std::getenv("WINEPREFIX") == nullptr) {
            GTEST_SKIP() << "set VELK_WINDOWS_BUILD and WINEPREFIX (scripts/test_windows.sh does)";
        }
        exe_ = fs::path(build) / "VELK_Updater.exe";
        ASSERT_TRUE(fs::exists(exe_)) << exe_;
        EndToEndTest::SetUp();
        wine({"reg", "delete", kProductKey, "/f"});
        wine({"sc", "delete", "VELKSvc"});
        ASSERT_EQ(setValue("InstallPath", windowsPath(installDir())), 0);
        ASSERT_EQ(setValue("Version", "1.0.0"), 0);
        ASSERT_EQ(setValue("BuildNumber", "100"), 0);
    }
    void TearDown() override {
        if (!exe_.empty()) wine({"reg", "delete", kProductKey, "/f"});
    }

    ProcessResult wine(std::vector<std::string> args) {
        return runProcess("/usr/bin/wine", args, ProcessOptions{{{"WINEDEBUG", "-all"}}, ""});
    }
    int setValue(const std::string& name, const std::string& text) {
        return wine({"reg", "add", kProductKey, "/v", name, "/t", "REG_SZ", "/d", text, "/f"}).exitCode;
    }
    std::string regQuery(const std::string& name) { return wine({"reg", "query", kProductKey, "/v", name}).out; }
    ProcessResult updater() { return wine({exe_.string()}); }

    fs::path exe_;
};

TEST_F(WineUpdateTest, PlainFilesAreReplacedAndTheNewVersionIsRecorded) {
    for (const auto& [name, content] : kRelease1) writeFile(installDir() / name, content);
    publish("2.0.0", "200", kRelease2);
    startServer();

    const ProcessResult first = updater();
    EXPECT_EQ(first.exitCode, 0) << first.out << first.err;
    EXPECT_NE(first.out.find("Installed VELK version: 1.0.0 (build 100)"), std::string::npos) << first.out;
    for (const auto& [name, content] : kRelease2) EXPECT_EQ(readFile(installDir() / name), content) << name;

    const std::string version = regQuery("Version");
    EXPECT_NE(version.find("REG_SZ"), std::string::npos) << version;
    EXPECT_NE(version.find("2.0.0"), std::string::npos) << version;
    EXPECT_NE(regQuery("BuildNumber").find("200"), std::string::npos);
    EXPECT_NE(first.out.find("Update process completed successfully"), std::string::npos) << first.out;
    EXPECT_NE(first.out.find("VELK service installed successfully"), std::string::npos) << first.out;
    const std::string image = wine({"reg", "query", kServiceKey, "/v", "ImagePath"}).out;
    EXPECT_NE(image.find(windowsPath(installDir() / "VELK_Service.exe")), std::string::npos) << image;

    // The rollout cohort is drawn once, kept as a REG_DWORD beside the version, and read again.
    const std::string cohort = regQuery("RolloutCohort");
    EXPECT_NE(cohort.find("REG_DWORD"), std::string::npos) << cohort;

    const ProcessResult second = updater();
    EXPECT_EQ(second.exitCode, 0) << second.out << second.err;
    EXPECT_EQ(regQuery("RolloutCohort"), cohort);
    EXPECT_NE(second.out.find("Installed VELK version: 2.0.0 (build 200)"), std::string::npos) << second.out;
    EXPECT_NE(readFile(logFile()).find("No update required - already at latest version (2.0.0) with all files current"),
              std::string::npos);
}

// Every whole file is gone from the server, so only the patch can bring the new build.
TEST_F(WineUpdateTest, PatchedUpdateUsesTheInstalledCopy) {
    std::string library;
    for (int i = 0; i < 5000; ++i) library += "function " + std::to_string(i) + ";\n";
    writeFile(installDir() / "VELK.dll", library + "1.0");
    writeFile(dir_ / "old" / "VELK.dll", library + "1.0");
    publish("2.0.0", "200", {{"VELK.dll", library + "2.0"}}, {"--delta-from", (dir_ / "old").string()});
    writeFile(rules(), "/cdn/files/VELK.dll 404\n/mirror/files/VELK.dll 404\n/origin/files/VELK.dll 404\n");
    startServer();
    const ProcessResult result = updater();
    EXPECT_EQ(result.exitCode, 0) << result.out << result.err;
    EXPECT_EQ(readFile(installDir() / "VELK.dll"), library + "2.0");
    EXPECT_NE(readFile(logFile()).find("] Patched VELK.dll from "), std::string::npos);
}

}  // namespace
}  // namespace velk::test
