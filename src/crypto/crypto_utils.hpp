#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velk::updater {

// Outcome of a fallible cryptographic operation: the digest or decoded bytes in `data`.
struct CryptoResult {
    bool success = false;
    std::string error;
    std::vector<std::uint8_t> data;
};

// SHA-256 of memory and files, hexadecimal and base64 texts, and Ed25519 and
// RSA-SHA256 signature checks. Digests and verifications need initialize() first.
class CryptoUtils {
public:
    CryptoUtils() = delete;

    static bool initialize();
    static void cleanup();
    static bool isInitialized();

    static CryptoResult sha256(const std::vector<std::uint8_t>& data);
    static CryptoResult sha256(const std::string& text);
    // Reads in 1 MiB pieces; memory does not grow with the file.
    static CryptoResult sha256File(const std::string& path);
    static std::string toHex(const std::vector<std::uint8_t>& bytes);
    // Standard alphabet, padding required; decoding stops at the first other character.
    static CryptoResult fromBase64(const std::string& text);

    // A number below `upperBound` (above 0), uniform, from the system's secure random source.
    static std::uint32_t randomUniform(std::uint32_t upperBound);

    static CryptoResult verifySignature(const std::string& message, const std::string& signatureBase64,
                                        const std::string& publicKeyBase64, const std::string& algorithm);
    static CryptoResult verifyEd25519Base64(const std::string& message, const std::string& signatureBase64,
                                            const std::string& publicKeyBase64);
    static CryptoResult verifyEd25519(const std::vector<std::uint8_t>& message, const std::vector<std::uint8_t>& signature,
                                      const std::vector<std::uint8_t>& publicKey);
    static CryptoResult verifyRsaSha256(const std::string& message, const std::string& signatureBase64,
                                        const std::string& publicKeyBase64);
};

}  // namespace velk::updater
