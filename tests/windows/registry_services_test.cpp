// The registry and the service control manager through the Windows backend, checked
// against what the system's own tools (reg, sc) see.
#include <gtest/gtest.h>

#include <cstdlib>

#include "install/installation.hpp"
#include "install/version_record.hpp"
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

    static void setDword(const std::string& name, DWORD value) {
        ASSERT_EQ(RegSetKeyValueA(HKEY_LOCAL_MACHINE, kProductRegistryKey, name.c_str(), REG_DWORD, &value,
                                  sizeof(value)),
                  ERROR_SUCCESS);
    }
    static void setString(const std::string& name, const std::string& text) {
        ASSERT_EQ(RegSetKeyValueA(HKEY_LOCAL_MACHINE, kProductRegistryKey, name.c_str(), REG_SZ, text.c_str(),
                                  static_cast<DWORD>(text.size() + 1)),
                  ERROR_SUCCESS);
    }
    static std::string regQuery(const std::string& name) {
        return captureCommand("reg query \"HKLM\\SOFTWARE\\Quenmark\\VELK\" /v " + name).text;
    }
};

TEST_F(ProductRecordTest, TypedReadsRefuseOtherTypesAndReportMissingValues) {
    setDword("Version", 7);
    setString("VELKInstalled", "1.4.0");
    setString("InstallPath", "C:\\Games\\VELK\\");

    std::uint32_t size = 0;
    EXPECT_EQ(platform::getStringValue(kProductRegistryKey, "Version", nullptr, &size), platform::kErrorUnsupportedType);
    EXPECT_EQ(platform::getStringValue(kProductRegistryKey, "Absent", nullptr, &size), platform::kErrorFileNotFound);

    // A DWORD "Version" is passed over for the older copy.
    EXPECT_EQ(getInstalledVersion(), "1.4.0");
    EXPECT_EQ(getRegistryInstallPath(), "C:\\Games\\VELK");
    EXPECT_EQ(getInstalledBuildNumber(), "");

    platform::RegistryKey key;
    ASSERT_EQ(key.open(kProductRegistryKey, platform::RegistryAccess::Read), platform::kErrorSuccess);
    std::uint32_t type = 0;
    DWORD value = 0;
    size = sizeof(value);
    ASSERT_EQ(key.queryValue("Version", &type, &value, &size), platform::kErrorSuccess);
    EXPECT_EQ(type, platform::kRegDword);
    EXPECT_EQ(value, 7u);
}

TEST_F(ProductRecordTest, WrittenVersionIsWhatRegQueryShows) {
    ASSERT_TRUE(setInstalledVersion("2.5.1", "1234"));
    const std::string version = regQuery("Version");
    EXPECT_NE(version.find("REG_SZ"), std::string::npos) << version;
    EXPECT_NE(version.find("2.5.1"), std::string::npos) << version;
    EXPECT_NE(regQuery("VELKInstalled").find("2.5.1"), std::string::npos);
    EXPECT_NE(regQuery("BuildNumber").find("1234"), std::string::npos);
    EXPECT_EQ(getInstalledVersion(), "2.5.1");
    EXPECT_EQ(getInstalledBuildNumber(), "1234");

    // No key, no write: the product never creates its record.
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
    // A second creation fails; Windows' sc gives ERROR_SERVICE_EXISTS as the exit code, Wine's 1.
    const int again = platform::createService(name, "VELK Test Service", "C:\\x.exe");
    EXPECT_EQ(again, test::runningUnderWine() ? 1 : 1073);

    EXPECT_EQ(std::system(("sc delete " + name + " >NUL").c_str()), 0);
    EXPECT_FALSE(platform::queryServicePresence(name).serviceOpened);
}

}  // namespace
}  // namespace velk::updater
