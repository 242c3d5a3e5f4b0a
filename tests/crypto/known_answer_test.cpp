// Every case of the published vectors: NIST CAVP SHA-256, RFC 8032 and Wycheproof.
#include <gtest/gtest.h>
#include <sodium.h>

#include <algorithm>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "crypto/crypto_utils.hpp"
#include "support/test_support.hpp"

namespace velk::updater {
namespace {

using nlohmann::json;

std::vector<std::uint8_t> fromHex(const std::string& hex) {
    std::vector<std::uint8_t> bytes(hex.size() / 2);
    for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<std::uint8_t>(std::stoi(hex.substr(2 * i, 2), nullptr, 16));
    return bytes;
}

std::string toBase64(const std::vector<std::uint8_t>& bytes) {
    std::string text(sodium_base64_encoded_len(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
    sodium_bin2base64(text.data(), text.size(), bytes.data(), bytes.size(), sodium_base64_VARIANT_ORIGINAL);
    text.pop_back();
    return text;
}

std::string vector(const std::string& name) { return test::readFile(std::string(VELK_VECTOR_DIR) + "/" + name); }

// "KEY = value" records separated by blank lines; '#' and '[' lines are skipped, CR removed.
std::vector<std::map<std::string, std::string>> records(const std::string& text) {
    std::vector<std::map<std::string, std::string>> result(1);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const auto equals = line.find(" =");  // "KEY = value", or "KEY =" for an empty value
        if (line.empty() && !result.back().empty()) {
            result.emplace_back();
        } else if (!line.empty() && line[0] != '#' && line[0] != '[' && equals != std::string::npos) {
            result.back()[line.substr(0, equals)] = line.substr(std::min(equals + 3, line.size()));
        }
    }
    if (result.back().empty()) result.pop_back();
    return result;
}

class KnownAnswerTest : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(CryptoUtils::initialize()); }
    void TearDown() override { CryptoUtils::cleanup(); }
};

TEST_F(KnownAnswerTest, NistSha256ShortAndLongMessages) {
    for (const auto& [file, count] : {std::pair{"SHA256ShortMsg.rsp", 65u}, {"SHA256LongMsg.rsp", 64u}}) {
        std::size_t checked = 0;
        for (const auto& record : records(vector(file))) {
            if (record.count("MD") == 0) continue;
            auto message = fromHex(record.at("Msg"));
            message.resize(std::stoul(record.at("Len")) / 8);  // Len = 0 lists the message "00"
            EXPECT_EQ(CryptoUtils::toHex(CryptoUtils::sha256(message).data), record.at("MD")) << file << " Len " << record.at("Len");
            ++checked;
        }
        EXPECT_EQ(checked, count);
    }
}

TEST_F(KnownAnswerTest, Rfc8032Ed25519) {
    const auto tests = records(vector("rfc8032_ed25519.txt"));
    ASSERT_EQ(tests.size(), 3u);
    for (const auto& record : tests) {
        const auto message = fromHex(record.at("MESSAGE"));
        const std::string text(message.begin(), message.end());
        const std::string signature = toBase64(fromHex(record.at("SIGNATURE")));
        const std::string key = toBase64(fromHex(record.at("PUBLIC_KEY")));
        EXPECT_TRUE(CryptoUtils::verifySignature(text, signature, key, "Ed25519").success) << record.at("TEST");
        EXPECT_EQ(CryptoUtils::verifySignature(text + "!", signature, key, "Ed25519").error, "Signature verification failed");
    }
}

// Only the valid cases verify; the counts show the whole file was read.
std::map<std::string, std::size_t> wycheproof(const std::string& file, const std::string& keyPointer,
                                              const std::function<bool(std::string, std::string, std::string)>& verify) {
    std::map<std::string, std::size_t> counts;
    const json document = json::parse(vector(file));
    for (const auto& group : document["testGroups"]) {
        for (const auto& test : group["tests"]) {
            const std::string expected = test["result"];
            EXPECT_EQ(verify(group[json::json_pointer(keyPointer)], test["msg"], test["sig"]), expected == "valid")
                << file << " tcId " << test["tcId"] << " " << test["comment"];
            counts[expected]++;
        }
    }
    return counts;
}

TEST_F(KnownAnswerTest, WycheproofEd25519) {
    const auto counts = wycheproof("ed25519_test.json", "/publicKey/pk", [](auto key, auto message, auto signature) {
        return CryptoUtils::verifyEd25519(fromHex(message), fromHex(signature), fromHex(key)).success;
    });
    EXPECT_EQ(counts, (std::map<std::string, std::size_t>{{"invalid", 63}, {"valid", 88}}));
}

// The "acceptable" DigestInfo without NULL parameter is refused: our publisher never writes one.
TEST_F(KnownAnswerTest, WycheproofRsaPkcs1Sha256) {
    const auto counts = wycheproof("rsa_signature_2048_sha256_test.json", "/publicKeyDer", [](auto key, auto message, auto signature) {
        const auto text = fromHex(message);
        return CryptoUtils::verifySignature(std::string(text.begin(), text.end()), toBase64(fromHex(signature)),
                                            toBase64(fromHex(key)), "RSA-SHA256").success;
    });
    EXPECT_EQ(counts, (std::map<std::string, std::size_t>{{"acceptable", 1}, {"invalid", 249}, {"valid", 9}}));
}

}  // namespace
}  // namespace velk::updater
