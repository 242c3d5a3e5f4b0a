#include "platform/commands.hpp"

#include <gtest/gtest.h>

#include "platform/posix/registry_file.hpp"
#include "platform/registry.hpp"
#include "platform/services.hpp"
#include "support/test_support.hpp"

namespace velk::updater::platform {
namespace {

std::string withNul(const std::string& text) { return text + '\0'; }

class CommandsTest : public test::SystemRootTest {
protected:
    static const RegistryValue* serviceValue(const std::string& service, const std::string& name) {
        static std::optional<RegistryFile> registry;
        registry = RegistryFile::load();
        const auto* key = registry->findKey(machineKeyPath("SYSTEM\\CurrentControlSet\\Services\\" + service));
        return key == nullptr ? nullptr : key->findValue(name);
    }
};

TEST_F(CommandsTest, ScCreatesAServiceOnceAndDescribesIt) {
    const std::string create =
        "sc create \"VELKSvc\" binPath= \"C:\\Apps\\VELK\\VELK_Service.exe\" DisplayName= \"VELK "
        "Anti-Cheat Service\" start= demand";
    EXPECT_EQ(runCommand("sc description \"VELKSvc\" \"text\""), 1060);
    EXPECT_EQ(runCommand(create), 0);
    EXPECT_TRUE(queryServicePresence("VELKSvc").serviceOpened);
    EXPECT_EQ(serviceValue("VELKSvc", "ImagePath")->data, withNul("C:\\Apps\\VELK\\VELK_Service.exe"));
    EXPECT_EQ(serviceValue("VELKSvc", "DisplayName")->data, withNul("VELK Anti-Cheat Service"));
    EXPECT_EQ(serviceValue("VELKSvc", "Start")->data, std::string("\x03\0\0\0", 4));
    EXPECT_EQ(runCommand(create), 1073);

    EXPECT_EQ(runCommand("sc description \"VELKSvc\" \"Plexwynd Anti-Cheat monitoring service\""), 0);
    EXPECT_EQ(serviceValue("VELKSvc", "Description")->data,
              withNul("Plexwynd Anti-Cheat monitoring service"));
}

TEST_F(CommandsTest, PnputilAddsADriverPackageOnceAndFindsIt) {
    const std::string find = "pnputil.exe /enum-drivers | findstr /i \"VELK\"";
    const std::string inf = (root() / "install" / "VELK_Sys.inf").string();
    const std::string add = "pnputil.exe /add-driver \"" + inf + "\" /install";

    EXPECT_EQ(runCommand(find), 1);
    EXPECT_EQ(runCommand(add), 2);
    EXPECT_FALSE(queryServicePresence("VELK_Sys").serviceOpened);

    test::writeFile(inf, "[Version]\n");
    EXPECT_EQ(runCommand(add), 0);
    EXPECT_TRUE(queryServicePresence("VELK_Sys").serviceOpened);
    EXPECT_EQ(serviceValue("VELK_Sys", "Type")->data, std::string("\x01\0\0\0", 4));
    EXPECT_EQ(runCommand(find), 0);
    EXPECT_EQ(runCommand(add), 259);
    EXPECT_EQ(runCommand("pnputil.exe /enum-drivers | findstr /i \"other\""), 1);
}

TEST_F(CommandsTest, OtherCommandLinesRunInTheShell) {
    EXPECT_EQ(runCommand("exit 7"), 7);
    const auto marker = root() / "marker";
    EXPECT_EQ(runCommand("echo done > '" + marker.string() + "'"), 0);
    EXPECT_EQ(test::readFile(marker), "done\n");
}

TEST_F(CommandsTest, UnreadableRegistryFailsServiceCreationWithoutTouchingIt) {
    const std::string corrupt = "not a registry";
    test::writeFile(root() / "registry.reg", corrupt);
    EXPECT_NE(runCommand("sc create \"VELKSvc\" binPath= \"x\" start= demand"), 0);
    EXPECT_EQ(test::readFile(root() / "registry.reg"), corrupt);
}

}  // namespace
}  // namespace velk::updater::platform
