#pragma once

#include <gtest/gtest.h>
#include <sodium.h>

#include <nlohmann/json.hpp>

#include "apply/update_client.hpp"
#include "crypto/crypto_utils.hpp"
#include "installation/version_record.hpp"
#include "release/path_rules.hpp"
#include "platform/process.hpp"
#include "support/http_test_server.hpp"
#include "support/quick_retries.hpp"
#include "support/digest.hpp"
#include "support/log_capture.hpp"

namespace velk::updater {

namespace fs = std::filesystem;

using test::sha256Hex;

// An update client over a fresh system root, installation and temporary directory, with
// a loopback server behind its three download bases.
class ClientTest : public test::SystemRootTest {
protected:
    void SetUp() override {
        ASSERT_TRUE(CryptoUtils::initialize());
        fs::create_directories(installDir());
        fs::create_directories(tmp_.path());
        registry("\"Version\"=\"1.0.0\"\n\"BuildNumber\"=\"100\"\n");
    }
    void TearDown() override { CryptoUtils::cleanup(); }

    fs::path installDir() const { return root() / "install"; }
    fs::path downloadDir() const { return installDir() / ".velk_downloads"; }
    void registry(const std::string& productValues, const std::string& extraKeys = "") {
        test::writeRegistry(root(), std::string(test::kProductKeyHeader) + productValues + "\n" + extraKeys);
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

    UpdateClient& client() {
        if (!client_) {
            FileUpdaterConfig files;
            files.layout = InstallationLayout(installDir().string());
            files.baseUrls = {server_.url("/cdn"), server_.url("/mirror"), server_.url("/origin")};
            files.transfer = test::quickRetries();
            ManifestVerifierConfig verifier;
            verifier.currentVersion = getInstalledVersion().empty() ? "0.0.0" : getInstalledVersion();
            verifier.currentBuildNumber = getInstalledBuildNumber().empty() ? "0" : getInstalledBuildNumber();
            SelfUpdaterConfig self;
            self.installDirectory = installDir().string();
            self.currentExecutable = platform::executablePath();
            client_ = std::make_unique<UpdateClient>(HttpConfig{}, files, verifier, self, log_.logger());
            EXPECT_TRUE(client_->initialize());
            log_.clear();
        }
        return *client_;
    }

    test::TempDir tmp_;
    test::ScopedEnv tmpEnv_{"TMPDIR", tmp_.str()};
    test::HttpTestServer server_;
    test::LogCapture log_;
    std::unique_ptr<UpdateClient> client_;
};

}  // namespace velk::updater
