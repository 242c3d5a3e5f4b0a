#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "logging/logger.hpp"
#include "release/manifest.hpp"

namespace velk::updater {

// With a release key pinned, every manifest must be signed by `threshold` distinct pinned
// keys, whatever `requireSignature` says, must not have expired and must be for the channel
// asked for; the keys a manifest carries are never trusted.
struct ManifestVerifierConfig {
    std::vector<std::string> publicKeys;  // pinned base64 Ed25519 release keys
    std::string rsaPublicKey;  // pinned base64 DER RSA release key; empty: no RSA manifest is accepted
    std::uint32_t threshold = 1;  // distinct pinned keys whose signatures a manifest needs
    std::string currentVersion;
    std::string currentBuildNumber;
    std::string channel = "stable";  // the channel whose manifest was asked for
    bool requireSignature = false;
    bool allowDowngrades = true;
    bool allowRollback = false;  // with a key pinned: accept a release older than the installed one
    std::uint32_t rolloutCohort = 0;  // this installation's cohort, below kRolloutCohorts
    bool ignoreRollout = false;       // take a release whatever its rollout share
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

    // Counts the distinct pinned keys that signed the manifest; true when they reach the
    // threshold. Signatures by other keys are ignored.
    bool verifyManifestSignature(const Manifest& manifest) const;
    // The downgrade and minimum-version gates.
    bool checkVersionCompatibility(const Manifest& manifest) const;
    // The rollback gate of a build with a pinned key.
    bool checkRollback(const Manifest& manifest) const;
    // Why the current manifest's version change waits for a larger rollout share, or an
    // empty text when this installation takes it.
    std::string rolloutHold() const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace velk::updater
