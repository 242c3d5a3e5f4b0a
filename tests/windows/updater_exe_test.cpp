// VELK_Updater.exe as a process: its fallback registration of the product's service and
// its reading of the product record, seen through the service manager and its output.
#include <gtest/gtest.h>

#include <cstdlib>

#include "install/version_record.hpp"
#include "platform/services.hpp"
#include "support/test_support.hpp"
#include "windows/windows_support.hpp"

namespace velk::updater {
namespace {

class UpdaterExeTest : public ::testing::Test {
protected:
    void SetUp() override {
        std::system("sc delete VELKSvc >NUL 2>&1");
        RegDeleteTreeA(HKEY_LOCAL_MACHINE, kProductRegistryKey);
        ASSERT_TRUE(test::createKey(kProductRegistryKey));
        setString("InstallPath", install_.str());
        setString("Version", "1.2.3");
        setString("BuildNumber", "45");
    }
    void TearDown() override {
        std::system("sc delete VELKSvc >NUL 2>&1");
        RegDeleteTreeA(HKEY_LOCAL_MACHINE, kProductRegistryKey);
    }
    static void setString(const std::string& name, const std::string& text) {
        ASSERT_EQ(RegSetKeyValueA(HKEY_LOCAL_MACHINE, kProductRegistryKey, name.c_str(), REG_SZ, text.c_str(),
                                  static_cast<DWORD>(text.size() + 1)),
                  ERROR_SUCCESS);
    }

    test::TempDir install_;
};

TEST_F(UpdaterExeTest, MissingServiceIsRegisteredAndVisibleToOpenService) {
    ASSERT_FALSE(platform::queryServicePresence("VELKSvc").serviceOpened);
    // A manifest of the installed version whose one file is present and correct: nothing to do.
    test::writeFile(install_ / "VELK.dll", "abc");
    test::writeFile(install_ / "manifest.json", R"({
        "manifest": {"version": "1.2.3", "build_number": "45", "files": [
            {"name": "VELK.dll", "url": "VELK.dll", "target_path": "VELK.dll", "size": 3,
             "sha256": "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"}]},
        "signature": {"algorithm": "Ed25519", "public_key": "a2V5", "signature": "c2ln"}})");

    const auto run = test::captureCommand("\"" + test::buildFolder() + "\\VELK_Updater.exe\" --check-only --manifest \"" +
                                          (install_ / "manifest.json").string() + "\" 2>&1");
    EXPECT_NE(run.text.find("Installed VELK version: 1.2.3 (build 45)"), std::string::npos) << run.text;
    EXPECT_NE(run.text.find("VELK service installed successfully"), std::string::npos) << run.text;
    EXPECT_EQ(run.exitCode, 0) << run.text;

    const auto presence = platform::queryServicePresence("VELKSvc");
    EXPECT_TRUE(presence.managerOpened);
    EXPECT_TRUE(presence.serviceOpened);
    // Wine's sc has no "qc"; the service's key holds the same command line.
    const auto query =
        test::captureCommand("reg query \"HKLM\\SYSTEM\\CurrentControlSet\\Services\\VELKSvc\" /v ImagePath");
    EXPECT_NE(query.text.find(install_.str() + "\\VELK_Service.exe"), std::string::npos) << query.text;
}

}  // namespace
}  // namespace velk::updater
