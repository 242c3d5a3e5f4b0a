#include <archive.h>
#include <archive_entry.h>

#include "delivery/url_candidates.hpp"
#include "download_fixture.hpp"

namespace velk::updater {
namespace {

struct ZipEntry { std::string name, content; bool symlink = false; };  // a link's content is its target

// Deflated, or stored when `stored`, so that a test can find and damage an entry's bytes.
std::string makeZip(const std::vector<ZipEntry>& entries, bool stored = false) {
    std::vector<char> buffer(1 << 20);
    std::size_t used = 0;
    std::unique_ptr<archive, decltype(&archive_write_free)> zip(archive_write_new(), archive_write_free);
    archive_write_set_format_zip(zip.get());
    if (stored) archive_write_set_options(zip.get(), "zip:compression=store");
    archive_write_open_memory(zip.get(), buffer.data(), buffer.size(), &used);
    for (const auto& item : entries) {
        std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(), archive_entry_free);
        archive_entry_set_pathname(entry.get(), item.name.c_str());
        archive_entry_set_filetype(entry.get(), item.symlink ? AE_IFLNK : AE_IFREG);
        if (item.symlink) archive_entry_set_symlink(entry.get(), item.content.c_str());
        archive_entry_set_perm(entry.get(), 0644);
        archive_entry_set_size(entry.get(), item.symlink ? 0 : static_cast<la_int64_t>(item.content.size()));
        archive_write_header(zip.get(), entry.get());
        if (!item.symlink) archive_write_data(zip.get(), item.content.data(), item.content.size());
    }
    archive_write_close(zip.get());
    return std::string(buffer.data(), used);
}

// Archive then plain file at every base until one answers (404 and 410 move on); a failure lists every URL tried.
TEST_F(DownloadTest, CandidatesInTurnUntilOneAnswersElseEveryAttemptedUrlIsListed) {
    const std::vector<std::string> all{"/cdn/files/VELK.dll.zip", "/cdn/files/VELK.dll", "/mirror/files/VELK.dll.zip",
                                       "/mirror/files/VELK.dll", "/origin/files/VELK.dll.zip", "/origin/files/VELK.dll"};
    std::string listed = "Download failed after attempts (zip then plain per base):\n";
    for (const std::string& path : all) listed += "  - " + server_.url(path) + "\n";
    EXPECT_EQ(downloader().download(entry("VELK.dll", "x")).errorMessage, listed);
    EXPECT_EQ(server_.requests(), all);

    const std::string content = "library v2";
    server_.clearRequests();
    server_.set("/cdn/files/VELK.dll", "gone", 410);
    server_.set("/mirror/files/VELK.dll", content);
    const Delivery result = delivered(content);
    EXPECT_EQ(result.path, (temp_ / "VELK.dll.tmp").string());
    EXPECT_EQ(result.bytesDownloaded, content.size());
    EXPECT_EQ(server_.requests(), std::vector<std::string>(all.begin(), all.begin() + 4));
    EXPECT_TRUE(log_.contains("[INFO] Download succeeded from: " + server_.url("/mirror/files/VELK.dll")));
}

// Only the entry reaches the disk; each archive of the table leaves nothing of itself behind.
TEST_F(DownloadTest, ArchiveIsSearchedForTheEntryElseTheDownloadFails) {
    const std::string content = "library bytes, stored as they are";
    server_.set("/cdn/files/VELK.dll.zip", makeZip({{"bin/x64/VELK.dll", content}, {"readme.txt", "hi"}}));
    const Delivery result = delivered(content);
    EXPECT_EQ(result.path, (temp_ / "VELK.dll.tmp").string());
    EXPECT_EQ(std::distance(fs::directory_iterator(temp_), fs::directory_iterator()), 1);
    EXPECT_EQ(server_.requests().size(), 1u);
    fs::remove(result.path);

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
        EXPECT_EQ(downloader().download(entry("VELK.dll", content)).errorMessage, row.error) << row.what;
        EXPECT_TRUE(fs::is_empty(temp_)) << row.what;
    }
    EXPECT_FALSE(fs::exists(temp_ / "escaped.dll"));
    EXPECT_FALSE(fs::exists(dir_ / "absolute.dll"));
}

TEST_F(DownloadTest, ZipBombIsCutOffAtTheEntrySize) {
    server_.set("/cdn/files/VELK.dll.zip", makeZip({{"VELK.dll", std::string(16 * 1024 * 1024, '\0')}}));
    const Delivery result = downloader().download(entry("VELK.dll", "ten bytes!"));
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.errorMessage, "Zip entry larger than expected");
    EXPECT_TRUE(fs::is_empty(temp_));
}

TEST_F(DownloadTest, UpperCaseZipSuffixIsNotAnArchive) {
    const std::string content = makeZip({{"VELK.ZIP", "inner"}});
    config_.tryArchiveFirst = false;
    server_.set("/cdn/files/VELK.ZIP", content);
    delivered(content, "VELK.ZIP");
}

TEST_F(DownloadTest, SizeIsCheckedAgainstTheManifest) {
    server_.set("/cdn/files/VELK.dll", "123");
    ManifestFile file = entry("VELK.dll", "1234");
    const Delivery result = downloader().download(file);
    EXPECT_FALSE(result.success);
    EXPECT_EQ(result.errorMessage, "File size mismatch");
    EXPECT_TRUE(log_.contains("[ERROR] File size mismatch after download: expected 4, got 3"));
    file.size = 0;
    EXPECT_TRUE(downloader().download(file).success);
}

TEST_F(DownloadTest, EndlessDataStopsPastTheManifestSize) {
    config_.baseUrls = {server_.url("/cdn")};
    server_.set("/cdn/files/VELK.dll.zip", std::string(4 * 1024 * 1024, 'z'));
    server_.setEndless("/cdn/files/VELK.dll");
    const ManifestFile file = entry("VELK.dll", "1234567890");
    const Delivery result = downloader().download(file);
    EXPECT_FALSE(result.success);
    EXPECT_TRUE(log_.contains("[WARNING] Download attempt failed: " + server_.url("/cdn/files/VELK.dll") +
                              " => Response larger than the expected 10 bytes (200)"));
    EXPECT_LT(server_.endlessBytesSent(), 64u * 1024 * 1024);
    EXPECT_FALSE(fs::exists(temp_ / "VELK.dll.tmp"));
}

TEST_F(DownloadTest, WithoutBaseUrlsTheEntryUrlIsFetchedDirectly) {
    config_.baseUrls.clear();
    server_.set("/direct/VELK.dll", "direct");
    EXPECT_TRUE(downloader().download(entry("VELK.dll", "direct", server_.url("/direct/VELK.dll"))).success);
    const Delivery missing = downloader().download(entry("VELK.dll", "x", server_.url("/nowhere")));
    EXPECT_EQ(missing.errorMessage, "Direct download failed: ");
}

// The digest taken while writing skips cut-off attempts and holds only while size and mtime are unchanged.
TEST_F(DownloadTest, DigestTakenDuringDownloadStandsForTheFileOnlyWhileItIsUnchanged) {
    const std::string content(100 * 1024, 'v');
    server_.setEndless("/cdn/files/VELK.dll.zip");
    server_.setEndless("/cdn/files/VELK.dll");
    server_.set("/mirror/files/VELK.dll", content);
    for (const std::string& replacement : {std::string(100 * 1024 + 1, 'e'), std::string(100 * 1024, 'e')}) {
        const Delivery result = downloader().download(entry("VELK.dll", content));
        ASSERT_TRUE(result.success) << result.errorMessage;
        EXPECT_EQ(downloader().keptDigestOf(result.path), sha256Hex(content));
        const auto written = fs::last_write_time(result.path);
        test::writeFile(result.path, replacement);
        fs::last_write_time(result.path, written - std::chrono::hours(1));
        EXPECT_EQ(downloader().keptDigestOf(result.path), "") << replacement.size();
    }
}

// An absolute URL keeps only its path, a relative one its folder with the entry's name.
TEST(UrlCandidates, EveryBaseInTurnWithTheEntrysPath) {
    const struct { std::vector<std::string> bases; bool archiveFirst; std::string url, name, expected; } rows[] = {
        {{"http://cdn/", "http://mirror"}, true, "files/VELK.dll", "VELK.dll",
         "http://cdn/files/VELK.dll.zip [zip]|http://cdn/files/VELK.dll|http://mirror/files/VELK.dll.zip [zip]|http://mirror/files/VELK.dll|"},
        {{"http://cdn"}, false, "files/VELK.dll", "VELK.dll", "http://cdn/files/VELK.dll|http://cdn/files/VELK.dll.zip [zip]|"},
        {{"http://cdn/base/"}, true, "https://elsewhere:8443/x/y/VELK.dll", "ignored.dll",
         "http://cdn/base/x/y/VELK.dll.zip [zip]|http://cdn/base/x/y/VELK.dll|"},
        {{"http://cdn"}, true, "https://elsewhere", "VELK.dll", ""},
        {{"http://cdn"}, true, "https://elsewhere/dir/", "VELK.dll", ""},
        {{"http://cdn/"}, false, "/dir/VELK.dll", "", "http://cdn/dir/VELK.dll|http://cdn/dir/VELK.dll.zip [zip]|"},
        {{"http://cdn"}, false, "dir/old-name.dll", "VELK.dll", "http://cdn/dir/VELK.dll|http://cdn/dir/VELK.dll.zip [zip]|"},
        {{}, true, "files/VELK.dll", "VELK.dll", ""},
    };
    for (const auto& row : rows) {
        UrlCandidateGenerator generator(row.bases, row.archiveFirst);
        generator.reset(row.url, row.name);
        std::string urls;
        std::string next;
        bool archive = false;
        for (std::size_t count = 1; generator.next(next, archive); ++count) {
            urls += next + (archive ? " [zip]|" : "|");
            EXPECT_EQ(generator.attemptedUrls().size(), count);
        }
        EXPECT_EQ(urls, row.expected) << row.url;
    }
}

}  // namespace
}  // namespace velk::updater
