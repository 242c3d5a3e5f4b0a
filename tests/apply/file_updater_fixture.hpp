#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "apply/file_updater.hpp"
#include "crypto/crypto_utils.hpp"
#include "http/http_client.hpp"
#include "support/http_test_server.hpp"
#include "support/quick_retries.hpp"
#include "support/log_capture.hpp"
#include "support/manifest_entry.hpp"

namespace velk::updater {

namespace fs = std::filesystem;

using test::entry;
using test::sha256Hex;

// A file updater over real folders and a loopback server with three base URLs.
class FileUpdaterTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(CryptoUtils::initialize());
        config_.baseUrls = {server_.url("/cdn"), server_.url("/mirror/"), server_.url("/origin")};
        config_.transfer = test::quickRetries();
        ASSERT_TRUE(http_.initialize());
    }
    void TearDown() override { CryptoUtils::cleanup(); }

    FileUpdater& updater() {
        if (!updater_) {
            config_.layout = InstallationLayout(install_.string());
            updater_ = std::make_unique<FileUpdater>(config_, http_, log_.logger());
            EXPECT_TRUE(updater_->initialize());
        }
        return *updater_;
    }
    fs::path installed(const std::string& relative) const { return install_ / relative; }
    static Manifest manifestOf(const std::vector<ManifestFile>& files) {
        Manifest manifest;
        manifest.version = "2.0.0";
        manifest.files = files;
        return manifest;
    }

    test::TempDir dir_;
    test::HttpTestServer server_;
    test::LogCapture log_;
    HttpClient http_{HttpConfig{}};
    // The installation folder; the layout is made of it with the updater.
    fs::path install_ = dir_ / "install";
    fs::path downloads() const { return install_ / ".velk_downloads"; }
    FileUpdaterConfig config_;
    std::unique_ptr<FileUpdater> updater_;
};

}  // namespace velk::updater
