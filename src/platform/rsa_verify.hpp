#pragma once

#include <cstdint>
#include <vector>

namespace velk::updater::platform {

enum class RsaVerifyStatus {
    Valid,
    KeyNotParsed,         // not a DER SubjectPublicKeyInfo
    ProviderUnavailable,  // the system's RSA implementation could not be opened
    KeyNotImported,       // not an RSA public key
    Invalid,              // the signature does not match
};

// Checks an RSASSA-PKCS1-v1_5 signature over a SHA-256 digest with a DER-encoded
// SubjectPublicKeyInfo. Every system object is released before returning.
RsaVerifyStatus verifyRsaPkcs1Sha256(const std::vector<std::uint8_t>& publicKeyDer,
                                     const std::vector<std::uint8_t>& digest,
                                     const std::vector<std::uint8_t>& signature);

}  // namespace velk::updater::platform
