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

// The registered folder is read as text without trailing separators and NULs; without one,
// or with a value that is no text, the folder under Program Files applies.
TEST_F(InstallationTest, RegisteredFolderElseTheDefaultUnderProgramFiles) {
    const std::string fallback = (root() / "Program Files" / "VELK").string();
    const struct { std::string value, path; } rows[] = {
        {"", ""},
        {R"("InstallPath"="D:\\VELK\\\\")", "D:\\VELK"},
        {R"("InstallPath"="C:\\")", "C:"},
        {"\"InstallPath\"=hex(1):2f,00,6f,00,70,00,74,00,2f,00,76,00,2f,00,00,00,00,00", "/opt/v"},  // "/opt/v/", 2 NULs
        {"\"InstallPath\"=dword:00000001", ""},
    };
    for (const auto& row : rows) {
        writeRegistry(root(), kProductKeyHeader + row.value + "\n");
        EXPECT_EQ(getRegistryInstallPath(), row.path) << row.value;
        EXPECT_EQ(getDefaultInstallDirectory(), row.path.empty() ? fallback : row.path) << row.value;
    }
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
    const struct { std::string services, message; } rows[] = {
        {"", "Missing VELK services/drivers: VELKSvc service, VELK_Sys driver"},
        {"VELKSvc]\n", "Missing VELK services/drivers: VELK_Sys driver"},
        {"VELK_Sys]\n", "Missing VELK services/drivers: VELKSvc service"},
        {"VELKSvc]\n" + std::string(kServicesKey) + "VELK_Sys]\n", "VELK services and drivers validated successfully"},
    };
    for (const auto& row : rows) {
        writeRegistry(root(), row.services.empty() ? "" : kServicesKey + row.services);
        const ValidationResult result = validateServicesAndDrivers();
        EXPECT_EQ(result.message, row.message);
        EXPECT_EQ(result.valid, row.message.starts_with("VELK services"));
        EXPECT_TRUE(result.missingItems.empty());
    }
}

}  // namespace
}  // namespace velk::updater
