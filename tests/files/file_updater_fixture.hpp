#pragma once

#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>
#include <sodium.h>

#include <memory>

#include "crypto/crypto_utils.hpp"
#include "files/file_updater.hpp"
#include "http/http_client.hpp"
#include "support/http_test_server.hpp"
#include "support/digest.hpp"
#include "support/log_capture.hpp"

namespace velk::updater {

namespace fs = std::filesystem;

using test::sha256Hex;

struct ZipEntry {
    std::string name;
    std::string content;
    bool symlink = false;  // content is then the link target
};

// Deflated, or stored when `stored`, so that a test can find and damage an entry's bytes.
inline std::string makeZip(const std::vector<ZipEntry>& entries, bool stored = false) {
    std::vector<char> buffer(1 << 20);
    std::size_t used = 0;
    std::unique_ptr<archive, decltype(&archive_write_free)> zip(archive_write_new(), archive_write_free);
    archive_write_set_format_zip(zip.get());
    if (stored) archive_write_set_options(zip.get(), "zip:compression=store");
    archive_write_open_memory(zip.get(), buffer.data(), buffer.size(), &used);
    for (const auto& item : entries) {
        std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(), archive_entry_free);
        archive_entry_set_pathname(entry.get(), item.name.c_str());
        if (item.symlink) {
            archive_entry_set_filetype(entry.get(), AE_IFLNK);
            archive_entry_set_symlink(entry.get(), item.content.c_str());
            archive_write_header(zip.get(), entry.get());
            continue;
        }
        archive_entry_set_filetype(entry.get(), AE_IFREG);
        archive_entry_set_perm(entry.get(), 0644);
        archive_entry_set_size(entry.get(), static_cast<la_int64_t>(item.content.size()));
        archive_write_header(zip.get(), entry.get());
        archive_write_data(zip.get(), item.content.data(), item.content.size());
    }
    archive_write_close(zip.get());
    return std::string(buffer.data(), used);
}

// A file updater over real directories and a loopback server with three base URLs.
class FileUpdaterTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(CryptoUtils::initialize());
        config_.installDirectory = (dir_ / "install").string();
        config_.backupDirectory = config_.installDirectory + "/backup";
        config_.tempDirectory = (dir_ / "temp").string();
        config_.baseUrls = {server_.url("/cdn"), server_.url("/mirror/"), server_.url("/origin")};
        ASSERT_TRUE(http_.initialize());
    }
    void TearDown() override { CryptoUtils::cleanup(); }

    FileUpdater& updater() {
        if (!updater_) {
            updater_ = std::make_unique<FileUpdater>(config_, http_, log_.logger());
            EXPECT_TRUE(updater_->initialize());
        }
        return *updater_;
    }
    static ManifestFile entry(const std::string& name, const std::string& content, const std::string& url = "") {
        ManifestFile file;
        file.name = name;
        file.url = url.empty() ? "files/" + name : url;
        file.size = content.size();
        file.sha256 = sha256Hex(content);
        file.target_path = name;
        return file;
    }
    fs::path installed(const std::string& relative) const { return fs::path(config_.installDirectory) / relative; }

    test::TempDir dir_;
    test::HttpTestServer server_;
    test::LogCapture log_;
    HttpClient http_{HttpConfig{}};
    FileUpdaterConfig config_;
    std::unique_ptr<FileUpdater> updater_;
};

}  // namespace velk::updater
