#include "crypto/crypto_utils.hpp"

#include <sodium.h>

#include <atomic>
#include <fstream>

#include "platform/rsa_verify.hpp"
#include "platform/sha256.hpp"

namespace velk::updater {
namespace {

std::atomic<bool> initialized{false};

CryptoResult failure(std::string error) {
    CryptoResult result;
    result.error = std::move(error);
    return result;
}

CryptoResult success(std::vector<std::uint8_t> data = {}) {
    CryptoResult result;
    result.success = true;
    result.data = std::move(data);
    return result;
}

std::vector<std::uint8_t> bytesOf(const std::string& text) { return {text.begin(), text.end()}; }

// Large reads keep the hash, not the system calls, the bottleneck.
constexpr std::size_t kReadBlock = 1 << 20;

}  // namespace

bool CryptoUtils::initialize() {
    if (initialized.load()) return true;
    if (sodium_init() < 0) return false;
    initialized.store(true);
    return true;
}

void CryptoUtils::cleanup() { initialized.store(false); }

bool CryptoUtils::isInitialized() { return initialized.load(); }

CryptoResult CryptoUtils::sha256(const std::vector<std::uint8_t>& data) {
    if (!initialized.load()) return failure("CryptoUtils not initialized");
    const auto digest = platform::sha256Of(data.data(), data.size());
    if (!digest) return failure("Failed to calculate SHA256 hash");
    return success({digest->begin(), digest->end()});
}

CryptoResult CryptoUtils::sha256(const std::string& text) {
    if (!initialized.load()) return failure("CryptoUtils not initialized");
    const auto digest = platform::sha256Of(text.data(), text.size());
    if (!digest) return failure("Failed to calculate SHA256 hash");
    return success({digest->begin(), digest->end()});
}

CryptoResult CryptoUtils::sha256File(const std::string& path) {
    if (!initialized.load()) return failure("CryptoUtils not initialized");
    std::ifstream in(path, std::ios::binary);
    if (!in.is_open()) return failure("Failed to open file: " + path);

    platform::Sha256 hash;
    if (!hash.ready()) return failure("Failed to calculate SHA256 hash");
    std::vector<char> buffer(kReadBlock);
    for (;;) {
        in.read(buffer.data(), static_cast<std::streamsize>(buffer.size()));
        const auto delivered = in.gcount();
        if (delivered <= 0) break;
        if (!hash.update(buffer.data(), static_cast<std::size_t>(delivered))) {
            return failure("Failed to calculate SHA256 hash");
        }
    }
    if (in.bad() && !in.eof()) return failure("Error reading file: " + path);

    const auto digest = hash.finish();
    if (!digest) return failure("Failed to finalize SHA256 hash");
    return success({digest->begin(), digest->end()});
}

std::string CryptoUtils::toHex(const std::vector<std::uint8_t>& bytes) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string hex;
    hex.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        hex += kDigits[byte >> 4];
        hex += kDigits[byte & 0x0F];
    }
    return hex;
}

CryptoResult CryptoUtils::fromBase64(const std::string& text) {
    if (text.empty()) return failure("Empty base64 string");
    std::vector<std::uint8_t> bytes(text.size() * 3 / 4 + 3);
    std::size_t length = 0;
    const char* end = nullptr;
    // Asking for the end position makes decoding stop quietly at the first character
    // outside the alphabet, such as a trailing line end.
    if (sodium_base642bin(bytes.data(), bytes.size(), text.c_str(), text.size(), nullptr, &length, &end,
                          sodium_base64_VARIANT_ORIGINAL) != 0) {
        return failure("Failed to decode base64");
    }
    bytes.resize(length);
    return success(std::move(bytes));
}

std::uint32_t CryptoUtils::randomUniform(std::uint32_t upperBound) { return randombytes_uniform(upperBound); }

CryptoResult CryptoUtils::verifySignature(const std::string& message, const std::string& signatureBase64,
                                          const std::string& publicKeyBase64, const std::string& algorithm) {
    if (algorithm == "Ed25519") return verifyEd25519Base64(message, signatureBase64, publicKeyBase64);
    if (algorithm == "RSA-SHA256") return verifyRsaSha256(message, signatureBase64, publicKeyBase64);
    return failure("Unsupported signature algorithm: " + algorithm);
}

CryptoResult CryptoUtils::verifyEd25519Base64(const std::string& message, const std::string& signatureBase64,
                                              const std::string& publicKeyBase64) {
    const CryptoResult signature = fromBase64(signatureBase64);
    if (!signature.success) return failure("Failed to decode signature: " + signature.error);
    const CryptoResult key = fromBase64(publicKeyBase64);
    if (!key.success) return failure("Failed to decode public key: " + key.error);
    return verifyEd25519(bytesOf(message), signature.data, key.data);
}

CryptoResult CryptoUtils::verifyEd25519(const std::vector<std::uint8_t>& message, const std::vector<std::uint8_t>& signature,
                                        const std::vector<std::uint8_t>& publicKey) {
    if (!initialized.load()) return failure("CryptoUtils not initialized");
    if (signature.size() != crypto_sign_BYTES) return failure("Invalid signature size");
    if (publicKey.size() != crypto_sign_PUBLICKEYBYTES) return failure("Invalid public key size");
    if (crypto_sign_verify_detached(signature.data(), message.data(), message.size(), publicKey.data()) != 0) {
        return failure("Signature verification failed");
    }
    return success();
}

CryptoResult CryptoUtils::verifyRsaSha256(const std::string& message, const std::string& signatureBase64,
                                          const std::string& publicKeyBase64) {
    if (!initialized.load()) return failure("CryptoUtils not initialized");
    const CryptoResult signature = fromBase64(signatureBase64);
    if (!signature.success) return failure("Failed to decode signature: " + signature.error);
    const CryptoResult key = fromBase64(publicKeyBase64);
    if (!key.success) return failure("Failed to decode public key: " + key.error);
    const CryptoResult digest = sha256(message);
    if (!digest.success) return failure("Failed to calculate message hash: " + digest.error);

    switch (platform::verifyRsaPkcs1Sha256(key.data, digest.data, signature.data)) {
        case platform::RsaVerifyStatus::Valid:
            return success();
        case platform::RsaVerifyStatus::KeyNotParsed:
            return failure("Failed to parse DER public key");
        case platform::RsaVerifyStatus::ProviderUnavailable:
            return failure("Failed to open RSA algorithm provider");
        case platform::RsaVerifyStatus::KeyNotImported:
            return failure("Failed to import RSA public key");
        case platform::RsaVerifyStatus::Invalid:
            break;
    }
    return failure("RSA signature verification failed");
}

}  // namespace velk::updater
