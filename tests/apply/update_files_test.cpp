#include <sys/mount.h>

#include "client_fixture.hpp"

namespace velk::updater {
namespace {

class UpdateFilesTest : public FileUpdaterTest {
protected:
    // Puts the installation on a fresh 64 KiB volume; false where mounting is not allowed.
    bool onSmallVolume() {
        volume_ = root() / "small";
        fs::create_directories(volume_);
        if (::mount("tmpfs", volume_.c_str(), "tmpfs", 0, "size=64k") != 0) return false;
        mounted_ = true;
        install_ = volume_ / "install";
        return true;
    }
    void TearDown() override {
        updater_.reset();
        if (mounted_) ::umount(volume_.c_str());
        FileUpdaterTest::TearDown();
    }
    fs::path volume_;
    bool mounted_ = false;
};

// A current copy is skipped without a request; the right size with other bytes is never installed.
TEST_F(UpdateFilesTest, EachEntryFromWhatIsInstalledAndWhatIsServed) {
    struct Row {
        std::string name, installed, listed, served, message, after;  // "": none
    };
    const std::vector<Row> rows = {
        {"VELK.dll", "lib", "lib", "", "Skipped - already current", "lib"},
        {"VELK_Service.exe", "wrong size", "svc", "svc", "", "svc"},
        {"VELK.exe", "same", "SAME", "SAME", "", "SAME"},
        {"VELK_Sys.sys", "", "good", "evil", "File integrity check failed", ""},
    };
    std::vector<ManifestFile> files;
    for (const Row& row : rows) {
        if (!row.installed.empty()) test::writeFile(installed(row.name), row.installed);
        if (!row.served.empty()) server_.set("/cdn/files/" + row.name, row.served);
        files.push_back(entry(row.name, row.listed));
    }
    const auto results = updater().updateFiles(manifestOf(files), {});
    ASSERT_EQ(results.size(), rows.size());
    for (std::size_t i = 0; i < rows.size(); ++i) {
        SCOPED_TRACE(rows[i].name);
        EXPECT_EQ(results[i].filePath, rows[i].name);
        EXPECT_EQ(results[i].success, rows[i].message != "File integrity check failed");
        EXPECT_EQ(results[i].errorMessage, rows[i].message);
        EXPECT_EQ(test::readFile(installed(rows[i].name)), rows[i].after);
        EXPECT_FALSE(fs::exists(downloads() / (rows[i].name + ".tmp")));
    }
    for (const auto& path : server_.requests()) {
        EXPECT_EQ(path.find("/VELK.dll"), std::string::npos) << path;
    }
}

TEST_F(UpdateFilesTest, ShutdownStopsBeforeTheFirstDownload) {
    test::writeFile(installed("VELK.dll"), "lib");
    updater().shutdown();
    const auto results = updater().updateFiles(manifestOf({entry("VELK.dll", "lib"), entry("VELK.exe", "exe")}), {});
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].errorMessage, "Skipped - already current");
    EXPECT_TRUE(server_.requests().empty());
}

// The new file (later its staging copy), its archive and the backup must all fit on the volume.
TEST_F(UpdateFilesTest, NotEnoughSpaceCountsTheArchiveAndTheBackupAndStopsBeforeAnyDownload) {
    if (!onSmallVolume()) GTEST_SKIP() << "cannot mount a small tmpfs here: " << std::strerror(errno);
    updater();
    const std::uint64_t available = fs::space(volume_).available;
    EXPECT_TRUE(updater().hasEnoughDiskSpace(available));
    EXPECT_FALSE(updater().hasEnoughDiskSpace(available + 1));
    EXPECT_TRUE(updater().hasRoomFor({entry("VELK.dll", std::string(available / 2, 'n'))}));
    EXPECT_FALSE(updater().hasRoomFor({entry("VELK.dll", std::string(available / 2 + 1, 'n'))}));
    test::writeFile(installed("VELK.dll"), std::string(4096, 'o'));
    ManifestFile backedUp = entry("VELK.dll", std::string(fs::space(volume_).available / 2, 'n'));
    EXPECT_TRUE(updater().hasRoomFor({backedUp}));
    backedUp.backup = true;
    EXPECT_FALSE(updater().hasRoomFor({backedUp}));

    server_.set("/cdn/files/VELK.exe", std::string(100000, 'x'));
    const auto results = updater().updateFiles(manifestOf({entry("VELK.exe", std::string(100000, 'x'))}), {});
    ASSERT_EQ(results.size(), 1u);
    EXPECT_FALSE(results[0].success);
    EXPECT_EQ(results[0].errorMessage, "Insufficient disk space");
    EXPECT_TRUE(server_.requests().empty());
}

// A partial waits for the next run only with its record, and for a week at most.
TEST_F(UpdateFilesTest, PurgeRemovesOnlyProductDownloads) {
    const std::vector<std::string> kept = {"other.tmp", "velk.dll.tmp", "VELK.dll.tmp.bak", "VELK.tmp/",
                                           "VELK.dll.tmp.partial", "VELK.dll.tmp.partial.resume"};
    const std::vector<std::string> gone = {"VELK.dll.tmp", "lonely.tmp.partial", "orphan.tmp.partial.resume",
                                           "old.tmp.partial", "old.tmp.partial.resume"};
    for (const auto& names : {kept, gone}) {
        for (const auto& name : names) {
            if (name.back() == '/') fs::create_directories(downloads() / name);
            else test::writeFile(downloads() / name, "x");
        }
    }
    for (const char* old : {"old.tmp.partial", "old.tmp.partial.resume"}) {
        fs::last_write_time(downloads() / old, fs::file_time_type::clock::now() - std::chrono::hours(24 * 8));
    }
    EXPECT_TRUE(updater().purgeTempFiles());
    for (const auto& name : kept) EXPECT_TRUE(fs::exists(downloads() / name)) << name;
    for (const auto& name : gone) EXPECT_FALSE(fs::exists(downloads() / name)) << name;
    EXPECT_TRUE(updater().purgeTempFiles());
}

// A plain file where a folder belongs, or a download folder that is a link, stops the rest.
TEST_F(UpdateFilesTest, InitializeMakesTheFoldersOrFailsWhenOneCannotBeMadeOrIsNotPrivate) {
    const fs::path plain = root() / "plain";
    test::writeFile(plain, "x");
    test::writeFile(root() / "blocked" / "backup", "x");
    test::writeFile(root() / "file" / ".velk_downloads", "x");
    fs::create_directories(root() / "linked");
    fs::create_directory_symlink(root(), root() / "linked" / ".velk_downloads");
    const struct {
        fs::path install;
        std::string logged;  // empty: it starts
    } rows[] = {
        {root() / "fresh" / "install", ""},
        {plain, "[ERROR] Install path exists but is not a directory: " + plain.string()},
        {root() / "blocked", "[ERROR] Failed to initialize FileUpdater: "},
        {root() / "file", "[ERROR] Failed to prepare the download folder: " + (root() / "file").string() +
                            "/.velk_downloads is not a folder"},
        {root() / "linked", "[ERROR] Failed to prepare the download folder: " + (root() / "linked").string() +
                              "/.velk_downloads is not a folder"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.install);
        FileUpdaterConfig config = config_;
        config.layout = InstallationLayout(row.install.string());
        FileUpdater updater(config, http_, log_.logger());
        EXPECT_EQ(updater.initialize(), row.logged.empty());
        EXPECT_TRUE(row.logged.empty() || log_.lines().back().rfind(row.logged, 0) == 0) << log_.lines().back();
        EXPECT_TRUE(fs::is_regular_file(plain));
    }
    EXPECT_TRUE(fs::is_directory(root() / "fresh" / "install" / "backup"));
    EXPECT_EQ(fs::status(root() / "fresh" / "install" / ".velk_downloads").permissions() & fs::perms::mask,
              fs::perms::owner_all);
    EXPECT_FALSE(fs::exists(root() / "blocked" / ".velk_downloads"));
}

}  // namespace
}  // namespace velk::updater
