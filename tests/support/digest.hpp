#pragma once

#include <sodium.h>

#include <string>

namespace velk::test {

// SHA-256 as lower-case hex from libsodium directly: made without the code under test.
inline std::string sha256Hex(const std::string& bytes) {
    unsigned char digest[crypto_hash_sha256_BYTES];
    crypto_hash_sha256(digest, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    char hex[2 * crypto_hash_sha256_BYTES + 1];
    sodium_bin2hex(hex, sizeof hex, digest, sizeof digest);
    return hex;
}

}  // namespace velk::test
