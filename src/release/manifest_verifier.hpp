#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "logging/logger.hpp"
#include "release/manifest.hpp"

namespace velk::updater {

// With either release key pinned, every manifest must be signed by a pinned key, whatever
// `requireSignature` says; the keys a manifest carries are never trusted.
struct ManifestVerifierConfig {
    std::string publicKey;     // pinned base64 Ed25519 release key
    std::string rsaPublicKey;  // pinned base64 DER RSA release key; empty: no RSA manifest is accepted
    std::string currentVersion;
    std::string currentBuildNumber;
    std::string channel = "stable";
    bool requireSignature = false;
    bool allowDowngrades = true;
    bool allowRollback = false;  // with a key pinned: accept a release older than the installed one
};

struct VerificationStatus {
    bool valid = false;
    bool signatureValid = false;
    bool structureValid = false;
    std::string errorMessage;
    std::string manifestVersion;
    std::chrono::system_clock::time_point timestamp{};
};

// The status, and the manifest when it was accepted.
struct VerificationResult : VerificationStatus {
    std::optional<Manifest> manifest;
};

// Turns manifest text into a trusted manifest: structure, optional signature, version
// compatibility. Keeps the last accepted manifest. Does no I/O of its own.
class ManifestVerifier {
public:
    ManifestVerifier(const ManifestVerifierConfig& config, Logger& logger);
    ~ManifestVerifier();
    ManifestVerifier(const ManifestVerifier&) = delete;
    ManifestVerifier& operator=(const ManifestVerifier&) = delete;

    VerificationResult parseAndVerify(const std::string& manifestJson);
    std::optional<Manifest> getCurrentManifest() const;
    const ManifestVerifierConfig& config() const;

    // Reports how the current manifest's version and build compare with the installed
    // ones, component by component; true when the manifest should be applied.
    bool analyzeVersionComparison() const;

    bool verifyManifestSignature(const Manifest& manifest) const;
    // The downgrade and minimum-version gates.
    bool checkVersionCompatibility(const Manifest& manifest) const;
    // The rollback gate of a build with a pinned key.
    bool checkRollback(const Manifest& manifest) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace velk::updater
