#include <archive.h>
#include <archive_entry.h>
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <sodium.h>

#include <chrono>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>

#include "crypto/crypto_utils.hpp"
#include "release/manifest_verifier.hpp"
#include "release/signed_text.hpp"
#include "support/log_capture.hpp"
#include "support/process_runner.hpp"

namespace velk::test {
namespace {

using nlohmann::json;

// Whether the updater accepts the document, asked for on its own channel, with these keys
// pinned and this many of them required.
bool accepted(const json& document, const std::vector<std::string>& ed25519Keys, const std::string& rsaKey = "",
              std::uint32_t threshold = 1) {
    updater::ManifestVerifierConfig config;
    config.publicKeys = ed25519Keys;
    config.rsaPublicKey = rsaKey;
    config.threshold = threshold;
    config.channel = document["manifest"]["channel"];
    LogCapture log;
    return updater::ManifestVerifier(config, log.logger()).parseAndVerify(document.dump()).valid;
}

std::string seedFile(const fs::path& path) {
    unsigned char seed[crypto_sign_SEEDBYTES];
    randombytes_buf(seed, sizeof seed);
    char encoded[64];
    sodium_bin2base64(encoded, sizeof encoded, seed, sizeof seed, sodium_base64_VARIANT_ORIGINAL);
    writeFile(path, std::string(encoded) + "\n");
    return path.string();
}

std::map<std::string, std::string> unzip(const fs::path& zipPath) {
    std::map<std::string, std::string> entries;
    std::unique_ptr<archive, decltype(&archive_read_free)> zip(archive_read_new(), archive_read_free);
    archive_read_support_format_zip(zip.get());
    EXPECT_EQ(archive_read_open_filename(zip.get(), zipPath.c_str(), 65536), ARCHIVE_OK);
    archive_entry* entry = nullptr;
    while (archive_read_next_header(zip.get(), &entry) == ARCHIVE_OK) {
        std::string content(static_cast<std::size_t>(archive_entry_size(entry)), '\0');
        archive_read_data(zip.get(), content.data(), content.size());
        entries[archive_entry_pathname(entry)] = content;
    }
    return entries;
}

class PublishTest : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(updater::CryptoUtils::initialize());
        writeFile(dir_ / "release" / "VELK.dll", "library bytes");
        writeFile(dir_ / "release" / "drivers" / "VELK_Sys.sys", std::string(70000, 'd'));
    }
    void TearDown() override { updater::CryptoUtils::cleanup(); }
    ProcessResult publish(std::vector<std::string> extra) {
        std::vector<std::string> args{"--release", (dir_ / "release").string(), "--out", (dir_ / "site").string(),
                                      "--version", "2.1.0", "--build", "1234", "--commit", "abc123"};
        args.insert(args.end(), extra.begin(), extra.end());
        // In the temporary folder, where the default signing key file is made.
        return runProcess(builtProgram("velk_publish"), args, ProcessOptions{{}, dir_.str(), ""});
    }
    json manifestDocument(const std::string& name = "manifest.json") {
        return json::parse(readFile(dir_ / "site" / name));
    }
    TempDir dir_;
};

TEST_F(PublishTest, ManifestDescribesEveryFileAndItsSignatureVerifies) {
    const ProcessResult run = publish({"--zip", "--channel", "test"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const json document = manifestDocument("manifest-test.json");
    const json& manifest = document["manifest"];
    EXPECT_EQ(manifest["version"], "2.1.0");
    EXPECT_EQ(manifest["build_number"], "1234");
    ASSERT_EQ(manifest["files"].size(), 2u);

    for (const auto& file : manifest["files"]) {
        const std::string target = file["target_path"];
        const std::string content = readFile(dir_ / "release" / target);
        EXPECT_EQ(file["size"].get<std::size_t>(), content.size()) << target;
        const auto digest = updater::CryptoUtils::sha256(content).data;
        EXPECT_EQ(file["sha256"], updater::CryptoUtils::toHex(digest)) << target;
        EXPECT_EQ(file["url"], "files/" + target);
        EXPECT_EQ(readFile(dir_ / "site" / "files" / target), content);
        const auto zipped = unzip(dir_ / "site" / "files" / (target + ".zip"));
        ASSERT_EQ(zipped.size(), 1u);
        EXPECT_EQ(zipped.begin()->first, file["name"].get<std::string>());
        EXPECT_EQ(zipped.begin()->second, content);
    }
    EXPECT_EQ(manifest["files"][1]["target_path"], "drivers/VELK_Sys.sys");

    EXPECT_EQ(document["signature"]["algorithm"], "Ed25519");
    const std::string key = document["signature"]["public_key"];
    EXPECT_TRUE(accepted(document, {key}));
    json tampered = document;
    tampered["manifest"]["files"][0]["size"] = 1;
    EXPECT_FALSE(accepted(tampered, {key}));
}

TEST_F(PublishTest, GivenSeedGivesTheSameKeyAndUrlBaseMakesUrlsAbsolute) {
    unsigned char seed[crypto_sign_SEEDBYTES];
    randombytes_buf(seed, sizeof seed);
    char encoded[64];
    sodium_bin2base64(encoded, sizeof encoded, seed, sizeof seed, sodium_base64_VARIANT_ORIGINAL);
    writeFile(dir_ / "seed.txt", std::string(encoded) + "\n");
    unsigned char publicKey[crypto_sign_PUBLICKEYBYTES], secretKey[crypto_sign_SECRETKEYBYTES];
    crypto_sign_seed_keypair(publicKey, secretKey, seed);
    sodium_bin2base64(encoded, sizeof encoded, publicKey, sizeof publicKey, sodium_base64_VARIANT_ORIGINAL);

    ASSERT_EQ(publish({"--sign-ed25519", (dir_ / "seed.txt").string(), "--url-base", "http://h:1"}).exitCode, 0);
    const json document = manifestDocument();
    EXPECT_EQ(document["signature"]["public_key"], encoded);
    EXPECT_EQ(document["manifest"]["files"][0]["url"], "http://h:1/files/VELK.dll");
}

// Every release must be signed by the one key the updater pins, so the default key is made
// once, kept in its file for its owner alone, and printed for the build setting.
TEST_F(PublishTest, DefaultKeyIsMadeOnceAndPrintedForPinning) {
    const ProcessResult first = publish({});
    ASSERT_EQ(first.exitCode, 0) << first.err;
    const std::string key = manifestDocument()["signature"]["public_key"];
    EXPECT_NE(first.out.find("-DVELK_RELEASE_PUBLIC_KEY=" + key + "\n"), std::string::npos) << first.out;
    const fs::path keyFile = dir_ / "velk_release_ed25519.key";
    EXPECT_EQ(fs::status(keyFile).permissions() & fs::perms::all, fs::perms::owner_read | fs::perms::owner_write);

    ASSERT_EQ(publish({}).exitCode, 0);
    EXPECT_EQ(manifestDocument()["signature"]["public_key"], key);
    const ProcessResult printed = runProcess(builtProgram("velk_publish"), {"--print-public-key"},
                                             ProcessOptions{{}, dir_.str(), ""});
    EXPECT_EQ(printed.out, key + "\n");
}

TEST_F(PublishTest, RsaSignatureVerifiesWithTheEmbeddedKey) {
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_RSA_gen(2048), EVP_PKEY_free);
    ASSERT_TRUE(key);
    {
        std::unique_ptr<FILE, decltype(&fclose)> pem(fopen((dir_ / "key.pem").c_str(), "w"), fclose);
        ASSERT_EQ(PEM_write_PrivateKey(pem.get(), key.get(), nullptr, nullptr, 0, nullptr, nullptr), 1);
    }
    ASSERT_EQ(publish({"--sign-rsa", (dir_ / "key.pem").string()}).exitCode, 0);
    const json document = manifestDocument();
    EXPECT_EQ(document["signature"]["algorithm"], "RSA-SHA256");
    EXPECT_TRUE(accepted(document, {}, document["signature"]["public_key"]));
}

TEST_F(PublishTest, HelpListsEveryOptionOnStandardOutput) {
    const ProcessResult help = runProcess(builtProgram("velk_publish"), {"--help"});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(help.err.empty());
    for (const char* flag : {"--rollout", "--expires-in", "--resign", "--sign-ed25519", "--sign-rsa", "--channel"}) {
        EXPECT_NE(help.out.find(flag), std::string::npos) << flag;
    }
    EXPECT_EQ(publish({"--rollout", "101"}).exitCode, 1);
    EXPECT_EQ(publish({"--expires-in", "soon"}).exitCode, 1);
}

// Several keys sign one manifest; a build that needs two of them accepts it. The expiry and
// the share are in the signed text.
TEST_F(PublishTest, SeveralKeysSignTheShareAndTheExpiry) {
    const std::string first = seedFile(dir_ / "first.seed"), second = seedFile(dir_ / "second.seed");
    const ProcessResult run = publish({"--sign-ed25519", first, "--sign-ed25519", second, "--rollout", "25",
                                       "--expires-in", "7"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const json document = manifestDocument();
    ASSERT_EQ(document["signatures"].size(), 2u);
    const std::vector<std::string> keys{document["signatures"][0]["public_key"], document["signatures"][1]["public_key"]};
    EXPECT_NE(run.out.find("-DVELK_RELEASE_PUBLIC_KEY=" + keys[0] + "," + keys[1] + "\n"), std::string::npos) << run.out;
    EXPECT_EQ(document["manifest"]["rollout_percentage"], 25);
    const auto expires = updater::parseIsoTime(document["manifest"]["expires"]);
    EXPECT_GT(expires, std::chrono::system_clock::now() + std::chrono::hours(24 * 6));
    EXPECT_LT(expires, std::chrono::system_clock::now() + std::chrono::hours(24 * 8));
    EXPECT_TRUE(accepted(document, keys, "", 2));
    json halted = document;
    halted["manifest"]["rollout_percentage"] = 100;
    EXPECT_FALSE(accepted(halted, keys));
}

// Re-signing gives the published release a new expiry and leaves its files as they are.
TEST_F(PublishTest, ResignKeepsTheFilesAndRenewsTheExpiry) {
    const std::string key = seedFile(dir_ / "vendor.seed");
    ASSERT_EQ(publish({"--sign-ed25519", key, "--expires-in", "-1", "--zip"}).exitCode, 0);
    const json before = manifestDocument();
    std::map<std::string, std::string> files;
    for (const auto& item : fs::recursive_directory_iterator(dir_ / "site" / "files")) {
        if (item.is_regular_file()) files[item.path().string()] = readFile(item.path());
    }
    const std::vector<std::string> pinned{before["signature"]["public_key"]};
    EXPECT_FALSE(accepted(before, pinned));

    const ProcessResult resigned = runProcess(builtProgram("velk_publish"),
                                              {"--resign", (dir_ / "site").string(), "--sign-ed25519", key, "--rollout", "0"});
    ASSERT_EQ(resigned.exitCode, 0) << resigned.err;
    const json after = manifestDocument();
    EXPECT_TRUE(accepted(after, pinned));
    EXPECT_EQ(after["manifest"]["files"], before["manifest"]["files"]);
    EXPECT_EQ(after["manifest"]["rollout_percentage"], 0);
    EXPECT_NE(after["manifest"]["expires"], before["manifest"]["expires"]);
    for (const auto& [path, content] : files) EXPECT_EQ(readFile(path), content) << path;
}

TEST_F(PublishTest, BadInvocationsFailWithoutWritingAManifest) {
    EXPECT_EQ(runProcess(builtProgram("velk_publish"), {"--release", "x"}).exitCode, 2);
    fs::remove_all(dir_ / "release");
    fs::create_directories(dir_ / "release");
    const ProcessResult empty = publish({});
    EXPECT_EQ(empty.exitCode, 1);
    EXPECT_NE(empty.err.find("no files"), std::string::npos);
    writeFile(dir_ / "release" / "a.dll", "a");
    writeFile(dir_ / "seed.txt", "c2hvcnQ=");
    EXPECT_EQ(publish({"--sign-ed25519", (dir_ / "seed.txt").string()}).exitCode, 1);
    EXPECT_FALSE(fs::exists(dir_ / "site" / "manifest.json"));
}

}  // namespace
}  // namespace velk::test
