#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <nlohmann/json.hpp>

#include "apply/update_client.hpp"
#include "crypto/crypto_utils.hpp"
#include "installation/version_record.hpp"
#include "platform/process.hpp"
#include "support/digest.hpp"
#include "support/http_test_server.hpp"
#include "support/log_capture.hpp"
#include "support/manifest_entry.hpp"
#include "support/quick_retries.hpp"

namespace velk::updater {

namespace fs = std::filesystem;

using test::entry;
using test::sha256Hex;

// Installation 1.0.0 (build 100), a server behind three bases; components made on first use.
class ApplyTest : public test::SystemRootTest {
protected:
    void SetUp() override {
        ASSERT_TRUE(CryptoUtils::initialize());
        ASSERT_TRUE(http_.initialize());
        fs::create_directories(install_);
        registry("\"Version\"=\"1.0.0\"\n\"BuildNumber\"=\"100\"\n");
        config_.baseUrls = {server_.url("/cdn"), server_.url("/mirror/"), server_.url("/origin")};
        config_.transfer = test::quickRetries();
    }
    void TearDown() override { CryptoUtils::cleanup(); }

    fs::path installed(const std::string& relative) const { return install_ / relative; }
    fs::path downloads() const { return install_ / ".velk_downloads"; }
    void registry(const std::string& productValues, const std::string& extraKeys = "") {
        test::writeRegistry(root(), test::kProductKeyHeader + productValues + "\n" + extraKeys);
    }
    std::string registryText() const { return test::readFile(root() / "registry.reg"); }

    // Publishes a file on the first base and describes it for the manifest.
    nlohmann::json publish(const std::string& name, const std::string& content) {
        server_.set("/cdn/files/" + name, content);
        return {{"name", name}, {"url", "files/" + name}, {"size", content.size()}, {"sha256", sha256Hex(content)},
                {"target_path", name}};
    }
    static std::string manifest(const std::string& version, const std::string& build,
                                const std::vector<nlohmann::json>& files) {
        return nlohmann::json{{"manifest", {{"version", version}, {"build_number", build}, {"files", nlohmann::json(files)}}},
                              {"signature", {{"algorithm", "Ed25519"}, {"public_key", "a2V5"}, {"signature", "c2ln"}}}}
            .dump();
    }
    static Manifest manifestOf(const std::vector<ManifestFile>& files) {
        Manifest manifest;
        manifest.version = "2.0.0";
        manifest.files = files;
        return manifest;
    }

    FileUpdater& updater() {
        if (!updater_) {
            config_.layout = InstallationLayout(install_.string());
            updater_ = std::make_unique<FileUpdater>(config_, http_, log_.logger());
            EXPECT_TRUE(updater_->initialize());
        }
        return *updater_;
    }
    UpdateClient& client() {
        if (!client_) {
            config_.layout = InstallationLayout(install_.string());
            ManifestVerifierConfig verifier;
            verifier.currentVersion = getInstalledVersion().empty() ? "0.0.0" : getInstalledVersion();
            verifier.currentBuildNumber = getInstalledBuildNumber().empty() ? "0" : getInstalledBuildNumber();
            SelfUpdaterConfig self;
            self.installDirectory = install_.string();
            self.currentExecutable = platform::executablePath();
            client_ = std::make_unique<UpdateClient>(HttpConfig{}, config_, verifier, self,
                                                     log_.logger());
            EXPECT_TRUE(client_->initialize());
            log_.clear();
        }
        return *client_;
    }

    test::HttpTestServer server_;
    test::LogCapture log_;
    test::TempDir tmp_;
    test::ScopedEnv tmpEnv_{"TMPDIR", tmp_.str()};
    fs::path install_ = root() / "install";
    FileUpdaterConfig config_;
    HttpClient http_{HttpConfig{}};
    std::unique_ptr<FileUpdater> updater_;
    std::unique_ptr<UpdateClient> client_;
};
using FileUpdaterTest = ApplyTest;
using ClientTest = ApplyTest;

}  // namespace velk::updater
