#include "client_fixture.hpp"

namespace velk::updater {
namespace {

const std::string kServices = "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\";

class ServicesTest : public ClientTest {
protected:
    void addDriverFiles(bool withCatalog = true) {
        test::writeFile(installDir() / "VELK_Sys.inf", "[Version]\n");
        test::writeFile(installDir() / "VELK_Sys.sys", "sys");
        if (withCatalog) test::writeFile(installDir() / "VELK_Sys.cat", "cat");
    }
};

TEST_F(ServicesTest, NothingRunsWhenBothAreRegistered) {
    registry("\"Version\"=\"1.0.0\"\n", kServices + "VELKSvc]\n" + kServices + "VELK_Sys]\n");
    const std::string before = registryText();
    EXPECT_TRUE(client().installServices());
    EXPECT_TRUE(log_.contains("[INFO] VELK service already installed"));
    EXPECT_TRUE(log_.contains("[INFO] VELK driver already installed"));
    EXPECT_TRUE(log_.contains("[INFO] Cleaning up backup files..."));
    EXPECT_EQ(registryText(), before);
    EXPECT_FALSE(fs::exists(root() / "DriverStore"));
}

TEST_F(ServicesTest, InstallsServiceAndDriverWithAMissingCatalog) {
    addDriverFiles(false);
    EXPECT_TRUE(client().installServices());
    const std::string inf = (installDir() / "VELK_Sys.inf").string();
    EXPECT_TRUE(log_.contains("[WARNING] Expected driver file not found: " + (installDir() / "VELK_Sys.cat").string()));
    EXPECT_TRUE(log_.contains("[WARNING] Some expected driver files are missing - proceeding anyway"));
    EXPECT_TRUE(log_.contains("[INFO] Executing: pnputil.exe /add-driver \"" + inf + "\" /install"));
    EXPECT_TRUE(log_.contains("[INFO] Driver verification successful - VELK driver found in driver store"));
    EXPECT_TRUE(client().serviceExists("VELK_Sys"));
    EXPECT_NE(registryText().find("Plexwynd Anti-Cheat monitoring service"), std::string::npos);
}

TEST_F(ServicesTest, MissingInfFailsAfterTheService) {
    EXPECT_FALSE(client().installServices());
    EXPECT_TRUE(log_.contains("[ERROR] Please ensure VELK is properly installed and all driver files are present"));
    EXPECT_TRUE(client().serviceExists("VELKSvc"));
    EXPECT_EQ(log_.lines().back(), "[INFO] Backup directory removed successfully: " + (installDir() / "backup").string());
}

TEST_F(ServicesTest, DriverPackageAlreadyInTheStoreGives259) {
    addDriverFiles();
    test::writeFile(root() / "DriverStore" / "VELK_Sys.inf", "[Version]\n");
    EXPECT_FALSE(client().installServices());
    EXPECT_TRUE(log_.contains("[ERROR] Failed to install VELK driver (exit code: 259)"));
    EXPECT_TRUE(log_.contains("[WARNING] No devices match the driver or a better driver is already installed"));
}

TEST_F(ServicesTest, ServiceCreationFailureStillTriesTheDriver) {
    addDriverFiles();
    test::ScopedImmutable locked(root() / "registry.reg");
    if (!locked.active()) GTEST_SKIP() << "the file system refuses the immutable attribute here";
    EXPECT_FALSE(client().installServices());
    EXPECT_TRUE(log_.contains("[ERROR] Failed to install VELK service (exit code: 87)"));
    EXPECT_TRUE(log_.contains("[INFO] Installing VELK driver..."));
    EXPECT_TRUE(log_.contains("[ERROR] Unknown driver installation error. Check Windows Event Log for details"));
}

TEST_F(ServicesTest, UnreadableRegistryMeansNoServiceManager) {
    test::writeFile(root() / "registry.reg", "garbage");
    EXPECT_FALSE(client().serviceExists("VELKSvc"));
    EXPECT_EQ(log_.lines().back(), "[ERROR] Failed to open service manager");
}

class CleanupTest : public ClientTest {};

// Leftovers are recognised by name only; a folder of that name is left alone. The final
// clean-up sweeps staging copies in the installation and downloads in the download folder.
TEST_F(CleanupTest, LeftoversByName) {
    struct Row {
        fs::path folder;
        std::vector<std::string> gone;
        std::vector<std::string> kept;
        std::string done;
    };
    const std::vector<Row> rows = {
        {installDir(),
         {"VELK.dll.staging", "my-velk-file.staging", "libcurl.dll.staging"},
         {"notes.staging", "VELK.dll.STAGING", "VELK.staging/"},
         "[INFO] Cleaned up 3 leftover staging files"},
        {downloadDir(),
         {"VELKsetup.tmp", "zlib1.dll.tmp"},
         {"oldVELK.tmp", "velk_x.tmp", "other.tmp", "VELKdir.tmp/"},
         "[INFO] Cleaned up 2 leftover temporary files"},
    };
    for (const Row& row : rows) {
        for (const auto& names : {row.gone, row.kept}) {
            for (const auto& name : names) {
                if (name.back() == '/') {
                    fs::create_directories(row.folder / name);
                } else {
                    test::writeFile(row.folder / name, "x");
                }
            }
        }
    }
    client().finalCleanup();
    for (const Row& row : rows) {
        for (const auto& name : row.gone) EXPECT_FALSE(fs::exists(row.folder / name)) << name;
        for (const auto& name : row.kept) EXPECT_TRUE(fs::exists(row.folder / name)) << name;
        EXPECT_TRUE(log_.contains(row.done)) << row.done;
    }
    log_.clear();
    client().finalCleanup();
    EXPECT_TRUE(log_.contains("[DEBUG] No leftover staging files found"));
    EXPECT_TRUE(log_.contains("[DEBUG] No leftover VELK temporary files found"));
}

TEST_F(CleanupTest, BackupDirectoryIsEmptiedAndRemovedUnlessItHoldsAFolder) {
    const fs::path backup = installDir() / "backup";
    test::writeFile(backup / "VELK.dll_20250101_000000.bak", "old");
    fs::create_directories(backup / "nested");
    client().cleanupBackupFiles();
    EXPECT_FALSE(fs::exists(backup / "VELK.dll_20250101_000000.bak"));
    EXPECT_TRUE(fs::exists(backup / "nested"));
    EXPECT_EQ(log_.lines().back().rfind("[WARNING] Error during backup cleanup: ", 0), 0u) << log_.lines().back();

    fs::remove(backup / "nested");
    client().cleanupBackupFiles();
    EXPECT_FALSE(fs::exists(backup));
    EXPECT_EQ(log_.lines().back(), "[INFO] Backup directory removed successfully: " + backup.string());
    client().cleanupBackupFiles();
    EXPECT_EQ(log_.lines().back(), "[INFO] No backup directory found, nothing to clean up");
}

}  // namespace
}  // namespace velk::updater
