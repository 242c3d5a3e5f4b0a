#include "installation/installation.hpp"

#include <gtest/gtest.h>

#include "support/test_support.hpp"

namespace velk::updater {
namespace {

using test::fs::exists;
using test::kProductKeyHeader;
using test::writeFile;
using test::writeRegistry;

class InstallationTest : public test::SystemRootTest {
protected:
    InstallationTest() { test::fs::create_directories(installDir()); }
    test::fs::path installDir() const { return root() / "install"; }
    void addRequiredFiles() {
        for (const char* name : {"VELK_Service.exe", "VELK.dll", "VELK_Launcher.exe"}) {
            writeFile(installDir() / name, "x");
        }
    }
    static constexpr const char* kServicesKey = "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\";
};

TEST_F(InstallationTest, RegistryPathLosesTrailingSeparatorsAndNuls) {
    writeRegistry(root(), kProductKeyHeader + std::string("\"InstallPath\"=\"D:\\\\VELK\\\\\\\\\"\n"));
    EXPECT_EQ(getRegistryInstallPath(), "D:\\VELK");
    EXPECT_EQ(getDefaultInstallDirectory(), "D:\\VELK");
    writeRegistry(root(), kProductKeyHeader + std::string("\"InstallPath\"=\"C:\\\\\"\n"));
    EXPECT_EQ(getRegistryInstallPath(), "C:");
    // "/opt/velk/" + NUL + NUL in the export's UTF-16 form.
    writeRegistry(root(), kProductKeyHeader +
                              std::string("\"InstallPath\"=hex(1):2f,00,6f,00,70,00,74,00,2f,00,76,00,"
                                          "2f,00,00,00,00,00\n"));
    EXPECT_EQ(getRegistryInstallPath(), "/opt/v");
}

TEST_F(InstallationTest, DefaultDirectoryIsUnderProgramFilesWithoutARegisteredPath) {
    EXPECT_EQ(getRegistryInstallPath(), "");
    EXPECT_EQ(getDefaultInstallDirectory(), (root() / "Program Files" / "VELK").string());
    // A path stored as a number is no path.
    writeRegistry(root(), kProductKeyHeader + std::string("\"InstallPath\"=dword:00000001\n"));
    EXPECT_EQ(getDefaultInstallDirectory(), (root() / "Program Files" / "VELK").string());
}

// The installation's folder; the download folder plays no part in these checks.
ValidationResult validate(const std::string& directory) {
    return validateInstallation(InstallationLayout(directory));
}

TEST_F(InstallationTest, DirectoryProblemsAreReportedInOrder) {
    EXPECT_EQ(validate("").message, "Installation directory is empty");
    const std::string absent = (root() / "absent").string();
    EXPECT_EQ(validate(absent).message, "Installation directory does not exist: " + absent);
    writeFile(root() / "plain", "x");
    const std::string plain = (root() / "plain").string();
    EXPECT_EQ(validate(plain).message, "Installation path is not a directory: " + plain);
    EXPECT_FALSE(validate(plain).valid);
}

// The write test runs only once every required file is there, and leaves nothing behind.
TEST_F(InstallationTest, MissingFilesAreListedInOrderBeforeTheWriteTest) {
    writeFile(installDir() / "VELK_Service.exe", "x");
    const std::string dir = installDir().string();
    const ValidationResult missing = validate(dir);
    EXPECT_FALSE(missing.valid);
    EXPECT_EQ(missing.message, "Missing required VELK files in " + dir + ": VELK.dll, VELK_Launcher.exe");
    EXPECT_EQ(missing.missingItems, (std::vector<std::string>{"VELK.dll", "VELK_Launcher.exe"}));

    addRequiredFiles();
    const ValidationResult complete = validate(dir);
    EXPECT_TRUE(complete.valid);
    EXPECT_EQ(complete.message, "VELK installation validated successfully");
    EXPECT_TRUE(complete.missingItems.empty());
    EXPECT_FALSE(exists(installDir() / "velk_updater_write_test.tmp"));
}

TEST_F(InstallationTest, FailedWriteTestIsReported) {
    addRequiredFiles();
    const std::string dir = installDir().string();
    {
        test::ScopedImmutable locked(installDir());
        if (!locked.active()) GTEST_SKIP() << "the file system refuses the immutable attribute here";
        EXPECT_EQ(validate(dir).message, "Installation directory is not writable: " + dir);
    }
    // A test file that exists already and cannot be removed: it opens for writing, the
    // removal fails with the system's error.
    writeFile(installDir() / "velk_updater_write_test.tmp", "");
    test::ScopedImmutable locked(installDir());
    const ValidationResult result = validate(dir);
    EXPECT_FALSE(result.valid);
    EXPECT_EQ(result.message.rfind("Cannot write to installation directory " + dir + ": ", 0), 0u) << result.message;
}

TEST_F(InstallationTest, ServicesCheckNamesWhatIsMissing) {
    EXPECT_EQ(validateServicesAndDrivers().message,
              "Missing VELK services/drivers: VELKSvc service, VELK_Sys driver");
    writeRegistry(root(), kServicesKey + std::string("VELKSvc]\n"));
    const ValidationResult serviceOnly = validateServicesAndDrivers();
    EXPECT_FALSE(serviceOnly.valid);
    EXPECT_EQ(serviceOnly.message, "Missing VELK services/drivers: VELK_Sys driver");
    EXPECT_TRUE(serviceOnly.missingItems.empty());
    EXPECT_TRUE(isServiceInstalled("VELKSvc"));
    EXPECT_FALSE(isDriverInstalled("VELK_Sys"));

    writeRegistry(root(), kServicesKey + std::string("VELKSvc]\n") + kServicesKey + "VELK_Sys]\n");
    const ValidationResult both = validateServicesAndDrivers();
    EXPECT_TRUE(both.valid);
    EXPECT_EQ(both.message, "VELK services and drivers validated successfully");
}

}  // namespace
}  // namespace velk::updater
