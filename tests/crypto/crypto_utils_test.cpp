#include "crypto/crypto_utils.hpp"

#include <gtest/gtest.h>

#include <functional>

#include "support/test_support.hpp"

namespace velk::updater {
namespace {

TEST(CryptoUtilsFiles, FileDigestMatchesMemoryDigestAroundTheBufferSize) {
    ASSERT_TRUE(CryptoUtils::initialize());
    test::TempDir dir;
    constexpr std::size_t kBlock = 1u << 20;  // the reader's block
    for (std::size_t size : {std::size_t{0}, std::size_t{1}, kBlock - 1, kBlock, kBlock + 1, 3 * kBlock + 17}) {
        std::string content(size, '\0');
        for (std::size_t i = 0; i < size; ++i) content[i] = static_cast<char>((i * 131 + 7) & 0xFF);
        test::writeFile(dir / "f", content);
        const CryptoResult file = CryptoUtils::sha256File((dir / "f").string());
        EXPECT_TRUE(file.success && file.data == CryptoUtils::sha256(content).data) << size << file.error;
    }
    CryptoUtils::cleanup();
}

// Only the Ed25519 text path decodes before it needs initialisation.
TEST(Signatures, ChecksComeInTheirOrder) {
    test::TempDir dir;
    const std::string missing = (dir / "missing.dll").string();
    const std::vector<std::uint8_t> key(32), message{1}, bytes(64);
    // Both parse as SubjectPublicKeyInfo: one holds an Ed25519 key, the other an empty RSA bit string.
    const std::string ed25519Spki = "MCowBQYDK2VwAyEAGb9ECWmEzf6FQbrBZ9w7lshQhqowtrbLDFw4rXAxZuE=";
    const std::string hollowRsaSpki = "MBUwDQYJKoZIhvcNAQEBBQADBAABAgM=";
    using V = std::vector<std::uint8_t>;
    struct Row { bool initialized; std::function<CryptoResult()> call; std::string error, decoded = ""; };
    const Row rows[] = {
        {false, [&] { return CryptoUtils::sha256(message); }, "CryptoUtils not initialized"},
        {false, [&] { return CryptoUtils::sha256("text"); }, "CryptoUtils not initialized"},
        {false, [&] { return CryptoUtils::sha256File(missing); }, "CryptoUtils not initialized"},
        {false, [&] { return CryptoUtils::verifyEd25519(message, bytes, key); }, "CryptoUtils not initialized"},
        {false, [&] { return CryptoUtils::verifyRsaSha256("m", "!!", "!!"); }, "CryptoUtils not initialized"},
        {false, [&] { return CryptoUtils::verifyEd25519Base64("m", "", "a2V5"); }, "Failed to decode signature: Empty base64 string"},
        {true, [&] { return CryptoUtils::sha256File(missing); }, "Failed to open file: " + missing},
        // A directory opens for reading but every read fails.
        {true, [&] { return CryptoUtils::sha256File(dir.str()); }, "Error reading file: " + dir.str()},
        {true, [&] { return CryptoUtils::verifyEd25519(message, V(63), V(31)); }, "Invalid signature size"},
        {true, [&] { return CryptoUtils::verifyEd25519(message, V(65), key); }, "Invalid signature size"},
        {true, [&] { return CryptoUtils::verifyEd25519(message, bytes, V(31)); }, "Invalid public key size"},
        {true, [&] { return CryptoUtils::verifySignature("m", "a", "b", "ed25519"); }, "Unsupported signature algorithm: ed25519"},
        {true, [&] { return CryptoUtils::verifyEd25519Base64("m", "c2ln", ""); }, "Failed to decode public key: Empty base64 string"},
        {true, [&] { return CryptoUtils::verifyRsaSha256("m", "", "a2V5"); }, "Failed to decode signature: Empty base64 string"},
        {true, [&] { return CryptoUtils::verifyRsaSha256("m", "c2ln", "aGVsbG8"); }, "Failed to decode public key: Failed to decode base64"},
        {true, [&] { return CryptoUtils::verifyRsaSha256("m", "c2ln", "bm90IGEga2V5"); }, "Failed to parse DER public key"},
        {true, [&] { return CryptoUtils::verifyRsaSha256("m", "c2ln", ed25519Spki); }, "Failed to import RSA public key"},
        {true, [&] { return CryptoUtils::verifyRsaSha256("m", "c2ln", hollowRsaSpki); }, "Failed to import RSA public key"},
        {true, [&] { return CryptoUtils::fromBase64(""); }, "Empty base64 string"},
        {true, [&] { return CryptoUtils::fromBase64("aGVsbG8"); }, "Failed to decode base64"},
        // A line end or a blank ends the text: what comes before it must be complete on its own.
        {true, [&] { return CryptoUtils::fromBase64("aGVsbG8=\r\n"); }, "", "hello"},
        {true, [&] { return CryptoUtils::fromBase64("aGVs bG8="); }, "", "hel"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(::testing::Message() << "row " << &row - rows);
        CryptoUtils::cleanup();
        if (row.initialized) {
            ASSERT_TRUE(CryptoUtils::initialize() && CryptoUtils::initialize());
        }
        const CryptoResult result = row.call();
        EXPECT_EQ(result.error, row.error);
        EXPECT_EQ(result.success, row.error.empty());
        EXPECT_EQ(std::string(result.data.begin(), result.data.end()), row.decoded);
    }
    CryptoUtils::cleanup();
}

}  // namespace
}  // namespace velk::updater
