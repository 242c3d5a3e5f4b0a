#pragma once

#include <string>

namespace velk::updater {

// The release signing keys this build trusts. They are build settings, never read from a
// manifest, a file or the environment: a manifest can only prove it was signed by them.
struct ReleaseKeys {
    std::string ed25519PublicKey;  // base64 of the 32-byte Ed25519 public key
    std::string rsaPublicKey;      // base64 of a DER SubjectPublicKeyInfo

    // A build that pins a key accepts signed manifests only.
    bool pinned() const { return !ed25519PublicKey.empty() || !rsaPublicKey.empty(); }
};

// The keys compiled into this program; both empty in a build that pins none.
ReleaseKeys pinnedReleaseKeys();

}  // namespace velk::updater
