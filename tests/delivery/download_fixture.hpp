#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "crypto/crypto_utils.hpp"
#include "delivery/download.hpp"
#include "support/http_test_server.hpp"
#include "support/log_capture.hpp"
#include "support/manifest_entry.hpp"
#include "support/quick_retries.hpp"

namespace velk::updater {

namespace fs = std::filesystem;

using test::entry;
using test::sha256Hex;

// A downloader into a fresh download folder, with a loopback server behind three bases.
class DownloadTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(CryptoUtils::initialize());
        ASSERT_TRUE(http_.initialize());
        fs::create_directories(temp_);
        config_.baseUrls = {server_.url("/cdn"), server_.url("/mirror/"), server_.url("/origin")};
        config_.policy = test::quickRetries();
    }
    void TearDown() override { CryptoUtils::cleanup(); }

    Downloader& downloader() {
        if (!downloader_) {
            const InstallationLayout layout((dir_ / "install").string());
            downloader_ = std::make_unique<Downloader>(config_, layout, http_, log_.logger());
        }
        return *downloader_;
    }
    // Downloads the entry of `content`, expecting those bytes at the path it reports.
    Delivery delivered(const std::string& content, const std::string& name = "VELK.dll") {
        const Delivery result = downloader().download(test::entry(name, content));
        EXPECT_TRUE(result.success) << result.errorMessage;
        EXPECT_EQ(test::readFile(result.path), content);
        return result;
    }

    test::TempDir dir_;
    test::HttpTestServer server_;
    test::LogCapture log_;
    HttpClient http_{HttpConfig{}};
    fs::path temp_ = dir_ / "install" / ".velk_downloads";
    DeliveryConfig config_;
    std::unique_ptr<Downloader> downloader_;
};

}  // namespace velk::updater
