#include "client_fixture.hpp"

namespace velk::updater {
namespace {

const std::string kServices = "[HKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Services\\";

// Install, then clean up: leftovers go by name (folders never), the backup folder once empty.
using ServicesModeTest = ClientTest;
TEST_F(ServicesModeTest, ServicesAndCleanupFromEachSituation) {
    struct Row {
        std::string what;
        bool registered;      // both services in the registry before
        int driverFiles;      // VELK_Sys.inf and .sys, and .cat when 3
        std::string registry;  // "locked" (read-only), "garbage" (unreadable), or fine
        bool inStore;         // the driver package already in the store
        bool backupFolder;    // the backup folder holds a folder of its own
        bool ok, service, driver, storedAfter;
        std::string reason;  // the log line that says why
    };
    const std::vector<Row> rows = {
        {"both registered", true, 0, "", false, false, true, true, true, false, "[INFO] VELK driver already installed"},
        {"no catalog", false, 2, "", false, false, true, true, true, true,
         "[WARNING] Some expected driver files are missing - proceeding anyway"},
        {"no INF", false, 0, "", false, true, false, true, false, false, "[ERROR] Driver INF file not found: "},
        {"package in the store", false, 3, "", true, false, false, true, false, true,
         "[ERROR] Failed to install VELK driver (exit code: 259)"},
        {"unreadable registry", false, 3, "garbage", false, false, false, false, false, false,
         "[ERROR] Failed to open service manager"},
        {"read-only registry", false, 3, "locked", false, false, false, false, false, true,
         "[ERROR] Failed to install VELK service (exit code: 87)"},  // last: it may be skipped
    };
    const std::vector<std::string> gone = {"VELK.dll.staging", "my-velk-file.staging", "libcurl.dll.staging",
                                           ".velk_downloads/VELKsetup.tmp", ".velk_downloads/zlib1.dll.tmp",
                                           "backup/VELK.dll_20250101_000000.bak"};
    const std::vector<std::string> kept = {"notes.staging", "VELK.dll.STAGING", "VELK.staging/",
                                           ".velk_downloads/oldVELK.tmp", ".velk_downloads/velk_x.tmp",
                                           ".velk_downloads/other.tmp", ".velk_downloads/VELKdir.tmp/"};
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        fs::remove_all(install_);
        fs::remove_all(root() / "DriverStore");
        for (const auto& names : {gone, kept}) {
            for (const auto& name : names) {
                if (name.back() == '/') fs::create_directories(install_ / name);
                else test::writeFile(install_ / name, "x");
            }
        }
        if (row.backupFolder) fs::create_directories(install_ / "backup" / "nested");
        const char* drivers[] = {"VELK_Sys.inf", "VELK_Sys.sys", "VELK_Sys.cat"};
        for (int i = 0; i < row.driverFiles; ++i) test::writeFile(install_ / drivers[i], "driver");
        if (row.inStore) test::writeFile(root() / "DriverStore" / "VELK_Sys.inf", "[Version]\n");
        registry("", row.registered ? kServices + "VELKSvc]\n" + kServices + "VELK_Sys]\n" : "");
        if (row.registry == "garbage") test::writeFile(root() / "registry.reg", "garbage");
        const std::string before = registryText();
        log_.clear();
        {
            std::optional<test::ScopedImmutable> locked;
            if (row.registry == "locked" && !locked.emplace(root() / "registry.reg").active()) {
                GTEST_SKIP() << "the file system refuses the immutable attribute here";
            }
            EXPECT_EQ(client().installServices(), row.ok);
            client().finalCleanup();
        }
        EXPECT_EQ(client().serviceExists("VELKSvc"), row.service);
        EXPECT_EQ(client().serviceExists("VELK_Sys"), row.driver);
        EXPECT_EQ(fs::exists(root() / "DriverStore" / "VELK_Sys.inf"), row.storedAfter);
        EXPECT_EQ(registryText() == before, row.registered || !row.service) << registryText();
        EXPECT_EQ(registryText().find("Plexwynd Anti-Cheat") != std::string::npos, row.service && !row.registered);
        EXPECT_NE(log_.count(row.reason), 0u) << row.reason;
        for (const auto& name : gone) EXPECT_FALSE(fs::exists(install_ / name)) << name;
        for (const auto& name : kept) EXPECT_TRUE(fs::exists(install_ / name)) << name;
        EXPECT_EQ(fs::exists(install_ / "backup"), row.backupFolder);
    }
}

}  // namespace
}  // namespace velk::updater
