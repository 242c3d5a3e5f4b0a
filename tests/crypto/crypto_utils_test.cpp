#include "crypto/crypto_utils.hpp"

#include <gtest/gtest.h>
#include <sodium.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/test_support.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

class CryptoUtilsTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(CryptoUtils::initialize()); }
    void TearDown() override { CryptoUtils::cleanup(); }
    test::TempDir dir_;
};

TEST_F(CryptoUtilsTest, FileDigestMatchesMemoryDigestAroundTheBufferSize) {
    constexpr std::size_t kBlock = 1u << 20;  // the reader's block
    for (std::size_t size : {std::size_t{0}, std::size_t{1}, kBlock - 1, kBlock, kBlock + 1, 3 * kBlock + 17}) {
        std::string content(size, '\0');
        for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>((i * 131 + 7) & 0xFF);
        const fs::path path = dir_ / ("f" + std::to_string(size));
        test::writeFile(path, content);
        const CryptoResult file = CryptoUtils::sha256File(path.string());
        ASSERT_TRUE(file.success) << file.error;
        EXPECT_EQ(file.data, CryptoUtils::sha256(content).data) << size;
    }
}

TEST_F(CryptoUtilsTest, UnopenableAndUnreadableFiles) {
    const std::string missing = (dir_ / "missing.dll").string();
    EXPECT_EQ(CryptoUtils::sha256File(missing).error, "Failed to open file: " + missing);
    // A directory opens for reading but every read fails.
    EXPECT_EQ(CryptoUtils::sha256File(dir_.str()).error, "Error reading file: " + dir_.str());

    // A file its reader has no permission for: root ignores permission bits, so the
    // check runs in a child that gives up root first.
    const std::string locked = (dir_ / "locked.dll").string();
    test::writeFile(locked, "secret");
    fs::permissions(locked, fs::perms::none);
    fs::permissions(dir_.path(), fs::perms::all);
    const pid_t child = fork();
    if (child == 0) {
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(2);
        _exit(CryptoUtils::sha256File(locked).error == "Failed to open file: " + locked ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST(CryptoUtilsLifecycle, DigestsAndVerificationsNeedInitialize) {
    CryptoUtils::cleanup();
    const std::vector<std::uint8_t> bytes{1, 2, 3};
    EXPECT_EQ(CryptoUtils::sha256(bytes).error, "CryptoUtils not initialized");
    EXPECT_EQ(CryptoUtils::sha256("text").error, "CryptoUtils not initialized");
    EXPECT_EQ(CryptoUtils::sha256File("/etc/hostname").error, "CryptoUtils not initialized");
    EXPECT_EQ(CryptoUtils::verifyEd25519(bytes, std::vector<std::uint8_t>(64), std::vector<std::uint8_t>(32)).error,
              "CryptoUtils not initialized");
    EXPECT_EQ(CryptoUtils::verifyRsaSha256("m", "!!", "!!").error, "CryptoUtils not initialized");
    // Decoding comes first on the Ed25519 text path and needs no initialisation.
    EXPECT_EQ(CryptoUtils::verifyEd25519Base64("m", "", "a2V5").error, "Failed to decode signature: Empty base64 string");

    ASSERT_TRUE(CryptoUtils::initialize());
    ASSERT_TRUE(CryptoUtils::initialize());
    EXPECT_TRUE(CryptoUtils::sha256(bytes).success);
    CryptoUtils::cleanup();
    EXPECT_FALSE(CryptoUtils::sha256(bytes).success);
}

TEST(Encodings, HexAndBase64) {
    EXPECT_EQ(CryptoUtils::toHex({}), "");  // the digests of the published vectors check the rest
    EXPECT_EQ(CryptoUtils::fromBase64("").error, "Empty base64 string");
    const CryptoResult lineEnd = CryptoUtils::fromBase64("aGVsbG8=\r\n");
    ASSERT_TRUE(lineEnd.success);
    EXPECT_EQ(std::string(lineEnd.data.begin(), lineEnd.data.end()), "hello");
    EXPECT_EQ(CryptoUtils::fromBase64("aGVsbG8").error, "Failed to decode base64");
    // A blank ends the text: what comes before it must be complete on its own.
    const CryptoResult blank = CryptoUtils::fromBase64("aGVs bG8=");
    ASSERT_TRUE(blank.success);
    EXPECT_EQ(std::string(blank.data.begin(), blank.data.end()), "hel");
    EXPECT_EQ(CryptoUtils::fromBase64("aGV sbG8=").error, "Failed to decode base64");
    EXPECT_EQ(CryptoUtils::fromBase64("aGVsbG8-").error, "Failed to decode base64");
}

TEST(Signatures, ChecksComeInTheirOrder) {
    ASSERT_TRUE(CryptoUtils::initialize());
    const std::vector<std::uint8_t> key(32), message{1};
    EXPECT_EQ(CryptoUtils::verifyEd25519(message, std::vector<std::uint8_t>(63), std::vector<std::uint8_t>(31)).error,
              "Invalid signature size");
    EXPECT_EQ(CryptoUtils::verifyEd25519(message, std::vector<std::uint8_t>(65), key).error, "Invalid signature size");
    EXPECT_EQ(CryptoUtils::verifyEd25519(message, std::vector<std::uint8_t>(64), std::vector<std::uint8_t>(31)).error,
              "Invalid public key size");
    EXPECT_EQ(CryptoUtils::verifySignature("m", "a", "b", "ed25519").error, "Unsupported signature algorithm: ed25519");
    EXPECT_EQ(CryptoUtils::verifyEd25519Base64("m", "c2ln", "").error, "Failed to decode public key: Empty base64 string");
    EXPECT_EQ(CryptoUtils::verifyRsaSha256("m", "c2ln", "bm90IGEga2V5").error, "Failed to parse DER public key");
    EXPECT_EQ(CryptoUtils::verifyRsaSha256("m", "", "a2V5").error, "Failed to decode signature: Empty base64 string");
    // An Ed25519 SubjectPublicKeyInfo parses but is no RSA key.
    const std::string ed25519Spki = "MCowBQYDK2VwAyEAGb9ECWmEzf6FQbrBZ9w7lshQhqowtrbLDFw4rXAxZuE=";
    EXPECT_EQ(CryptoUtils::verifyRsaSha256("m", "c2ln", ed25519Spki).error, "Failed to import RSA public key");
    // A well-formed RSA SubjectPublicKeyInfo whose bit string holds no RSA key.
    EXPECT_EQ(CryptoUtils::verifyRsaSha256("m", "c2ln", "MBUwDQYJKoZIhvcNAQEBBQADBAABAgM=").error, "Failed to import RSA public key");
    CryptoUtils::cleanup();
}

}  // namespace
}  // namespace velk::updater
