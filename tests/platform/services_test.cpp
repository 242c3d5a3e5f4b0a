#include "platform/services.hpp"

#include <gtest/gtest.h>

#include "platform/posix/registry_file.hpp"
#include "platform/registry.hpp"
#include "support/test_support.hpp"

namespace velk::updater::platform {
namespace {

std::string withNul(const std::string& text) { return text + '\0'; }

class ServicesTest : public test::SystemRootTest {
protected:
    // The data of a service's value as the registry file holds it; "<absent>" without it.
    static std::string serviceData(const std::string& service, const std::string& name) {
        const auto registry = RegistryFile::load();
        const auto* key = registry->findKey(machineKeyPath("SYSTEM\\CurrentControlSet\\Services\\" + service));
        const auto* value = key == nullptr ? nullptr : key->findValue(name);
        return value == nullptr ? "<absent>" : value->data;
    }
};

TEST_F(ServicesTest, ServiceIsCreatedOnceAsAKeyBelowTheServicesKeyAndDescribed) {
    EXPECT_TRUE(queryServicePresence("VELKSvc").managerOpened);  // no file: an empty registry
    EXPECT_FALSE(queryServicePresence("VELKSvc").serviceOpened);
    EXPECT_EQ(setServiceDescription("VELKSvc", "text"), kServiceDoesNotExist);
    EXPECT_EQ(createService("VELKSvc", "VELK Anti-Cheat Service", "C:\\Apps\\VELK\\VELK_Service.exe"), 0);
    for (const char* name : {"VELKSvc", "velksvc"}) EXPECT_TRUE(queryServicePresence(name).serviceOpened) << name;
    for (const char* name : {"VELK_Sys", ""}) EXPECT_FALSE(queryServicePresence(name).serviceOpened) << name;
    EXPECT_EQ(serviceData("VELKSvc", "ImagePath"), withNul("C:\\Apps\\VELK\\VELK_Service.exe"));
    EXPECT_EQ(serviceData("VELKSvc", "DisplayName"), withNul("VELK Anti-Cheat Service"));
    EXPECT_EQ(serviceData("VELKSvc", "Start"), std::string("\x03\0\0\0", 4));
    EXPECT_EQ(serviceData("VELKSvc", "ObjectName"), withNul("LocalSystem"));
    EXPECT_EQ(createService("VELKSvc", "Other", "C:\\x.exe"), kServiceExists);
    EXPECT_EQ(serviceData("VELKSvc", "ImagePath"), withNul("C:\\Apps\\VELK\\VELK_Service.exe"));
    EXPECT_EQ(setServiceDescription("VELKSvc", "described"), 0);
    EXPECT_EQ(serviceData("VELKSvc", "Description"), withNul("described"));
}

TEST_F(ServicesTest, DriverPackageIsAddedOnceAndFound) {
    const std::string inf = (root() / "install" / "VELK_Sys.inf").string();

    EXPECT_EQ(findDriverPackage("VELK"), 1);
    EXPECT_EQ(addDriverPackage(inf), kFileNotFound);
    test::writeFile(inf, "[Version]\n");
    EXPECT_EQ(addDriverPackage(inf), 0);
    EXPECT_TRUE(queryServicePresence("VELK_Sys").serviceOpened);
    EXPECT_EQ(serviceData("VELK_Sys", "Type"), std::string("\x01\0\0\0", 4));
    EXPECT_EQ(serviceData("VELK_Sys", "ObjectName"), withNul(""));
    EXPECT_EQ(findDriverPackage("velk"), 0);
    EXPECT_EQ(addDriverPackage(inf), kDriverPackageExists);
    EXPECT_EQ(findDriverPackage("other"), 1);
}

}  // namespace
}  // namespace velk::updater::platform
