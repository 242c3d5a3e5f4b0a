#include "file_updater_fixture.hpp"

namespace velk::updater {
namespace {

class DownloadTest : public FileUpdaterTest {};

// The first base answers neither the archive (404) nor the file (503); the mirror has no
// archive but the file.
TEST_F(DownloadTest, MissingArchiveFallsBackToThePlainFileAndAFailingBaseToTheNext) {
    const std::string content = "library v2";
    server_.set("/cdn/files/VELK.dll", "server error", 503);
    server_.set("/mirror/files/VELK.dll", content);
    const FileUpdateResult result = updater().downloadFile(entry("VELK.dll", content));
    ASSERT_TRUE(result.success) << result.errorMessage;
    EXPECT_EQ(result.filePath, (fs::path(config_.tempDirectory) / "VELK.dll.tmp").string());
    EXPECT_EQ(test::readFile(result.filePath), content);
    EXPECT_EQ(result.bytesDownloaded, content.size());
    EXPECT_EQ(server_.requests(), (std::vector<std::string>{"/cdn/files/VELK.dll.zip", "/cdn/files/VELK.dll",
                                                            "/mirror/files/VELK.dll.zip", "/mirror/files/VELK.dll"}));
    EXPECT_TRUE(log_.contains("[WARNING] Download attempt failed: " + server_.url("/mirror/files/VELK.dll.zip") +
                              " =>  (404)"));
    EXPECT_TRUE(log_.contains("[INFO] Download succeeded from: " + server_.url("/mirror/files/VELK.dll")));
}

TEST_F(DownloadTest, FailureListsEveryAttemptedUrl) {
    const FileUpdateResult result = updater().downloadFile(entry("VELK.dll", "x"));
    EXPECT_FALSE(result.success);
    std::string expected = "Download failed after attempts (zip then plain per base):\n";
    for (const char* path : {"/cdn/files/VELK.dll.zip", "/cdn/files/VELK.dll", "/mirror/files/VELK.dll.zip",
                             "/mirror/files/VELK.dll", "/origin/files/VELK.dll.zip", "/origin/files/VELK.dll"}) {
        expected += "  - " + server_.url(path) + "\n";
    }
    EXPECT_EQ(result.errorMessage, expected);

    // An absolute URL without a path forms no candidate: no request, no lines.
    server_.clearRequests();
    const FileUpdateResult none = updater().downloadFile(entry("VELK.dll", "x", "https://cdn.example"));
    EXPECT_EQ(none.errorMessage, "Download failed after attempts (zip then plain per base):\n");
    EXPECT_TRUE(server_.requests().empty());
}

TEST_F(DownloadTest, ArchiveIsUnpackedAndSearchedRecursively) {
    const std::string content = "zipped library";
    server_.set("/cdn/files/VELK.dll.zip", makeZip({{"bin/x64/VELK.dll", content}, {"readme.txt", "hi"}}));
    const FileUpdateResult result = updater().downloadFile(entry("VELK.dll", content));
    ASSERT_TRUE(result.success) << result.errorMessage;
    EXPECT_EQ(result.filePath, (fs::path(config_.tempDirectory) / "VELK.dll.tmp").string());
    EXPECT_EQ(test::readFile(result.filePath), content);
    // Only the wanted entry reached the disk, and the archive is gone.
    EXPECT_EQ(std::distance(fs::directory_iterator(config_.tempDirectory), fs::directory_iterator()), 1);
    EXPECT_EQ(server_.requests().size(), 1u);
}

// Each archive fails the download and leaves nothing of itself: a wrong entry name, no
// zip, entries reaching outside the folder, and an entry whose data does not finish.
TEST_F(DownloadTest, ArchiveProblemsFailTheDownload) {
    const std::string content = "library bytes, stored as they are";
    const std::string stored = makeZip({{"VELK.dll", content}}, true);
    std::string corrupt = stored;
    corrupt[corrupt.find(content) + 3] ^= 0x20;  // the stored CRC no longer matches
    const struct {
        const char* what;
        std::string zip;
        const char* error;
    } rows[] = {
        {"wrong case", makeZip({{"velk.dll", content}}), "Zip missing expected entry"},
        {"no zip", "not a zip at all", "Failed to extract zip"},
        {"parent path", makeZip({{"../escaped.dll", "evil"}, {"VELK.dll", content}}), "Failed to extract zip"},
        {"absolute path", makeZip({{"VELK.dll", content}, {(dir_ / "absolute.dll").string(), "evil"}}), "Failed to extract zip"},
        {"symlink", makeZip({{"link", "../../", true}, {"VELK.dll", content}}), "Failed to extract zip"},
        {"crc mismatch", corrupt, "Failed to extract zip"},
        {"truncated data", stored.substr(0, stored.find(content) + 10), "Failed to extract zip"},
    };
    for (const auto& row : rows) {
        server_.set("/cdn/files/VELK.dll.zip", row.zip);
        EXPECT_EQ(updater().downloadFile(entry("VELK.dll", content)).errorMessage, row.error) << row.what;
        EXPECT_TRUE(fs::is_empty(config_.tempDirectory)) << row.what;
    }
    EXPECT_FALSE(fs::exists(fs::path(config_.tempDirectory) / "escaped.dll"));
    EXPECT_FALSE(fs::exists(dir_ / "absolute.dll"));
}

// A small archive that unpacks to far more than the entry may hold is cut off at the
// entry's size and leaves nothing behind.
TEST_F(DownloadTest, ZipBombIsCutOffAtTheEntrySize) {
    server_.set("/cdn/files/VELK.dll.zip", makeZip({{"VELK.dll", std::string(16 * 1024 * 1024, '\0')}}));
    const FileUpdateResult result = updater().downloadFile(entry("VELK.dll", "ten bytes!"));
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.errorMessage, "Zip entry larger than expected");
    EXPECT_TRUE(fs::is_empty(config_.tempDirectory));
}

TEST_F(DownloadTest, UpperCaseZipSuffixIsNotAnArchive) {
    const std::string content = makeZip({{"VELK.ZIP", "inner"}});
    config_.baseUrls = {server_.url("/cdn")};
    config_.tryArchiveFirst = false;
    server_.set("/cdn/files/VELK.ZIP", content);
    const FileUpdateResult result = updater().downloadFile(entry("VELK.ZIP", content));
    ASSERT_TRUE(result.success) << result.errorMessage;
    EXPECT_EQ(test::readFile(result.filePath), content);
}

TEST_F(DownloadTest, SizeIsCheckedAgainstTheManifest) {
    server_.set("/cdn/files/VELK.dll", "123");
    ManifestFile file = entry("VELK.dll", "1234");
    const FileUpdateResult result = updater().downloadFile(file);
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.errorMessage, "File size mismatch");
    EXPECT_TRUE(log_.contains("[ERROR] File size mismatch after download: expected 4, got 3"));
    file.size = 0;
    EXPECT_TRUE(updater().downloadFile(file).success);
}

// A server that sends more than the manifest's size, or never stops, is cut off at the
// size: neither the disk nor the time of the run is the server's to take.
TEST_F(DownloadTest, EndlessDataStopsPastTheManifestSize) {
    config_.baseUrls = {server_.url("/cdn")};
    server_.set("/cdn/files/VELK.dll.zip", std::string(4 * 1024 * 1024, 'z'));
    server_.setEndless("/cdn/files/VELK.dll");
    const ManifestFile file = entry("VELK.dll", "1234567890");
    const FileUpdateResult result = updater().downloadFile(file);
    EXPECT_FALSE(result.success);
    EXPECT_TRUE(log_.contains("[WARNING] Download attempt failed: " + server_.url("/cdn/files/VELK.dll") +
                              " => Response larger than the expected 10 bytes (0)"));
    EXPECT_LT(server_.endlessBytesSent(), 64u * 1024 * 1024);
    EXPECT_FALSE(fs::exists(updater().getTempPath(file)));
}

TEST_F(DownloadTest, WithoutBaseUrlsTheEntryUrlIsFetchedDirectly) {
    config_.baseUrls.clear();
    server_.set("/direct/VELK.dll", "direct");
    EXPECT_TRUE(updater().downloadFile(entry("VELK.dll", "direct", server_.url("/direct/VELK.dll"))).success);
    const FileUpdateResult missing = updater().downloadFile(entry("VELK.dll", "x", server_.url("/nowhere")));
    EXPECT_EQ(missing.errorMessage, "Direct download failed: ");
}

// The digest is taken while the file is written; attempts cut off before the one that
// succeeds must leave nothing of theirs in it.
TEST_F(DownloadTest, DigestTakenDuringDownloadIsThatOfTheFileAfterCutOffAttempts) {
    const std::string content(100 * 1024, 'v');
    server_.setEndless("/cdn/files/VELK.dll.zip");
    server_.setEndless("/cdn/files/VELK.dll");
    server_.set("/mirror/files/VELK.dll", content);
    const FileUpdateResult result = updater().downloadFile(entry("VELK.dll", content));
    ASSERT_TRUE(result.success) << result.errorMessage;
    EXPECT_TRUE(updater().verifyFileIntegrity(result.filePath, sha256Hex(content)));
    EXPECT_TRUE(log_.contains("[INFO] Actual SHA256: " + sha256Hex(content)));
}

// The temporary folder is shared: a download replaced after it was written (another size,
// or the same size with another modification time) is hashed again, not judged by the
// digest taken while the original was written.
class SwappedDownload : public FileUpdaterTest, public ::testing::WithParamInterface<std::string> {};

TEST_P(SwappedDownload, FileChangedAfterItsDownloadIsReadAgain) {
    const std::string content = "library v2!";
    const std::string replacement = GetParam();
    server_.set("/cdn/files/VELK.dll", content);
    const FileUpdateResult result = updater().downloadFile(entry("VELK.dll", content));
    ASSERT_TRUE(result.success) << result.errorMessage;
    const auto written = fs::last_write_time(result.filePath);
    test::writeFile(result.filePath, replacement);
    fs::last_write_time(result.filePath, written - std::chrono::hours(1));
    EXPECT_FALSE(updater().verifyFileIntegrity(result.filePath, sha256Hex(content)));
    EXPECT_TRUE(log_.contains("[INFO] Actual SHA256: " + sha256Hex(replacement)));
}

INSTANTIATE_TEST_SUITE_P(OtherSizeOrSameSize, SwappedDownload, ::testing::Values("evil library!", "EVIL LIB v2"));

}  // namespace
}  // namespace velk::updater
