#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace velk::updater {

// The release signing keys this build trusts. They are build settings, never read from a
// manifest, a file or the environment: a manifest can only prove it was signed by them.
struct ReleaseKeys {
    std::vector<std::string> ed25519PublicKeys;  // base64 of 32-byte Ed25519 public keys
    std::string rsaPublicKey;                    // base64 of a DER SubjectPublicKeyInfo
    std::uint32_t threshold = 1;                 // distinct keys that must have signed

    // A build that pins a key accepts signed manifests only.
    bool pinned() const { return !ed25519PublicKeys.empty() || !rsaPublicKey.empty(); }
};

// The keys compiled into this program; none in a build that pins none.
ReleaseKeys pinnedReleaseKeys();

}  // namespace velk::updater
