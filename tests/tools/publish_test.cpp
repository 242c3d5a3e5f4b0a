#include <gtest/gtest.h>

#include <chrono>
#include <nlohmann/json.hpp>

#include "crypto/crypto_utils.hpp"
#include "release/manifest_verifier.hpp"
#include "support/log_capture.hpp"
#include "support/process_runner.hpp"

namespace velk::test {
namespace {

using nlohmann::json;

class PublishTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(updater::CryptoUtils::initialize());
        writeFile(dir_ / "release" / "VELK.dll", "library bytes");
        writeFile(dir_ / "release" / "drivers" / "VELK_Sys.sys", std::string(70000, 'd'));
    }
    void TearDown() override { updater::CryptoUtils::cleanup(); }
    // Run in the temporary folder, where the default signing key file is made.
    ProcessResult publish(std::vector<std::string> extra) {
        std::vector<std::string> args{"--release", (dir_ / "release").string(), "--out", (dir_ / "site").string(),
                                      "--version", "2.1.0", "--build", "1234", "--commit", "abc123"};
        args.insert(args.end(), extra.begin(), extra.end());
        return runProcess(builtProgram("velk_publish"), args, ProcessOptions{{}, dir_.str()});
    }
    TempDir dir_;
};

// A flag set fails saying why, or publishes a manifest that verifies with the keys printed for
// pinning. The default key is made once, kept for its owner alone and printed on request.
TEST_F(PublishTest, FlagSetsAndWhatTheyPublish) {
    const std::string first = (dir_ / "first.seed").string(), second = (dir_ / "second.seed").string();
    writeFile(first, std::string(43, 'A') + "=\n");
    writeFile(second, std::string(43, 'E') + "=\n");
    writeFile(dir_ / "short.seed", "c2hvcnQ=");
    fs::create_directories(dir_ / "empty");
    std::string defaultKey;
    struct Row {  // part of what it prints; the manifest it writes, and what that says by JSON pointer
        std::vector<std::string> flags; int exitCode; std::string says, manifest = ""; json fields = json::object(); int expiresInDays = 30;
    };
    const Row rows[] = {
        {{}, 0, "", "manifest.json", {{"/manifest/channel", "stable"}, {"/manifest/rollout_percentage", 100}}},
        {{"--channel", "test", "--backup"}, 0, "", "manifest-test.json", {{"/manifest/channel", "test"}, {"/manifest/files/1/backup", true}}},
        {{"--url-base", "http://h:1", "--minimum-version", "1.5"}, 0, "", "manifest.json",
         {{"/manifest/files/0/url", "http://h:1/files/VELK.dll"}, {"/manifest/minimum_version", "1.5"}}},
        {{"--rollout", "25", "--expires-in", "7"}, 0, "", "manifest.json", {{"/manifest/rollout_percentage", 25}}, 7},
        {{"--sign-ed25519", first, "--sign-ed25519", second}, 0, "", "manifest.json", {{"/signatures/1/algorithm", "Ed25519"}}},
        {{"--help"}, 0, "--sign-ed25519 FILE  an Ed25519 seed file"},
        {{"--rollout", "101"}, 1, "--rollout takes a whole number from 0 to 100"},
        {{"--expires-in", "soon"}, 1, "--expires-in takes a whole number"},
        {{"--sign-ed25519", (dir_ / "short.seed").string()}, 1, "the Ed25519 seed must be 32 bytes in base64"},
        {{"--release", (dir_ / "empty").string()}, 1, "no files in"},
        {{"--version", ""}, 2, "usage: velk_publish"},
        {{"--sign-everything"}, 2, "usage: velk_publish"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::PrintToString(row.flags));
        fs::remove_all(dir_ / "site");
        const ProcessResult run = publish(row.flags);
        EXPECT_EQ(run.exitCode, row.exitCode) << run.err;
        EXPECT_NE((run.out + run.err).find(row.says), std::string::npos) << run.out << run.err;
        if (row.manifest.empty()) {
            EXPECT_FALSE(fs::exists(dir_ / "site" / "manifest.json"));
            continue;
        }
        const json document = json::parse(readFile(dir_ / "site" / row.manifest));
        for (const auto& [pointer, value] : row.fields.items()) EXPECT_EQ(document[json::json_pointer(pointer)], value) << pointer;
        const auto expiry = updater::parseIsoTime(document["manifest"]["expires"]) - std::chrono::system_clock::now();
        EXPECT_LT(std::chrono::abs(expiry - std::chrono::hours(24 * row.expiresInDays)), std::chrono::hours(1));
        // The updater accepts it on its own channel with every printed key pinned and required.
        updater::ManifestVerifierConfig config;
        config.channel = document["manifest"]["channel"];
        std::string pinned;
        for (const json& signature : document.value("signatures", json::array({document["signature"]}))) {
            config.publicKeys.push_back(signature["public_key"]);
            pinned += (pinned.empty() ? "" : ",") + config.publicKeys.back();
        }
        config.threshold = static_cast<std::uint32_t>(config.publicKeys.size());
        LogCapture log;
        EXPECT_TRUE(updater::ManifestVerifier(config, log.logger()).parseAndVerify(document.dump()).valid);
        EXPECT_NE(run.out.find("-DVELK_RELEASE_PUBLIC_KEY=" + pinned + "\n"), std::string::npos) << run.out;
        if (row.flags.empty()) defaultKey = pinned;
    }
    EXPECT_EQ(fs::status(dir_ / "velk_release_ed25519.key").permissions() & fs::perms::all,
              fs::perms::owner_read | fs::perms::owner_write);
    const ProcessResult printed = runProcess(builtProgram("velk_publish"), {"--print-public-key"},
                                             ProcessOptions{{}, dir_.str()});
    EXPECT_EQ(printed.out, defaultKey + "\n");
}

}  // namespace
}  // namespace velk::test
