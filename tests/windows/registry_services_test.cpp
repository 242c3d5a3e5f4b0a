// The registry and the service control manager through the Windows backend, checked
// against what the system's own tools (reg, sc) see.
#include <gtest/gtest.h>

#include <cstdlib>

#include "installation/installation.hpp"
#include "installation/version_record.hpp"
#include "platform/registry.hpp"
#include "platform/services.hpp"
#include "windows/windows_support.hpp"

namespace velk::updater {
namespace {

using test::captureCommand;

class ProductRecordTest : public ::testing::Test {
protected:
    void SetUp() override {
        RegDeleteTreeA(HKEY_LOCAL_MACHINE, kProductRegistryKey);
        ASSERT_TRUE(test::createKey(kProductRegistryKey));
    }
    void TearDown() override { RegDeleteTreeA(HKEY_LOCAL_MACHINE, kProductRegistryKey); }
};

TEST_F(ProductRecordTest, TypedReadsRefuseOtherTypesAndReportMissingValues) {
    const DWORD seven = 7;
    ASSERT_EQ(RegSetKeyValueA(HKEY_LOCAL_MACHINE, kProductRegistryKey, "Version", REG_DWORD, &seven, sizeof(seven)),
              ERROR_SUCCESS);
    std::uint32_t size = 0;
    EXPECT_EQ(platform::getStringValue(kProductRegistryKey, "Version", nullptr, &size), platform::kErrorUnsupportedType);
    EXPECT_EQ(platform::getStringValue(kProductRegistryKey, "Absent", nullptr, &size), platform::kErrorFileNotFound);

    platform::RegistryKey key;
    ASSERT_EQ(key.open(kProductRegistryKey, platform::RegistryAccess::Read), platform::kErrorSuccess);
    std::uint32_t type = 0;
    DWORD value = 0;
    size = sizeof(value);
    ASSERT_EQ(key.queryValue("Version", &type, &value, &size), platform::kErrorSuccess);
    EXPECT_EQ(type, platform::kRegDword);
    EXPECT_EQ(value, 7u);
}

TEST_F(ProductRecordTest, WrittenVersionIsWhatRegQueryShowsAndAMissingKeyIsNeverCreated) {
    ASSERT_TRUE(setInstalledVersion("2.5.1", "1234"));
    const std::string version = captureCommand("reg query \"HKLM\\SOFTWARE\\Quenmark\\VELK\" /v Version").text;
    EXPECT_NE(version.find("REG_SZ"), std::string::npos) << version;
    EXPECT_NE(version.find("2.5.1"), std::string::npos) << version;
    EXPECT_EQ(getInstalledVersion(), "2.5.1");

    RegDeleteTreeA(HKEY_LOCAL_MACHINE, kProductRegistryKey);
    EXPECT_FALSE(setInstalledVersion("3.0.0", "1"));
    EXPECT_NE(captureCommand("reg query \"HKLM\\SOFTWARE\\Quenmark\\VELK\"").exitCode, 0);
}

TEST(ServiceManagerTest, ServiceCreatedBySeamIsFoundByOpenService) {
    const std::string name = "VELKTestSvc";
    std::system(("sc delete " + name + " >NUL 2>&1").c_str());
    const auto before = platform::queryServicePresence(name);
    EXPECT_TRUE(before.managerOpened);
    EXPECT_FALSE(before.serviceOpened);
    EXPECT_FALSE(isServiceInstalled(name));

    ASSERT_EQ(platform::createService(name, "VELK Test Service", "C:\\VELK\\VELK_Service.exe"), 0);
    EXPECT_TRUE(platform::queryServicePresence(name).serviceOpened);
    EXPECT_TRUE(isServiceInstalled(name));
    // Wine's sc has no "qc"; the service's key holds the command line.
    const auto image = captureCommand("reg query \"HKLM\\SYSTEM\\CurrentControlSet\\Services\\" + name + "\" /v ImagePath");
    EXPECT_NE(image.text.find("C:\\VELK\\VELK_Service.exe"), std::string::npos) << image.text;
    // A second creation fails; Windows' sc gives ERROR_SERVICE_EXISTS as the exit code, Wine's 1.
    const int again = platform::createService(name, "VELK Test Service", "C:\\x.exe");
    EXPECT_EQ(again, test::runningUnderWine() ? 1 : 1073);

    EXPECT_EQ(std::system(("sc delete " + name + " >NUL").c_str()), 0);
    EXPECT_FALSE(platform::queryServicePresence(name).serviceOpened);
}

}  // namespace
}  // namespace velk::updater
