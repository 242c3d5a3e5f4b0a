#include "release/manifest_verifier.hpp"

#include <algorithm>
#include <set>

#include "crypto/crypto_utils.hpp"
#include "release/manifest_verifier_impl.hpp"
#include "release/signed_text.hpp"
#include "release/version_decision.hpp"

namespace velk::updater {

namespace {

bool keyPinned(const ManifestVerifierConfig& config) {
    return !config.publicKeys.empty() || !config.rsaPublicKey.empty();
}

// The signatures to count: all of them when several keys signed, else the one.
std::vector<ManifestSignature> signaturesOf(const Manifest& manifest) {
    if (manifest.signatures.empty()) return {manifest.signature};
    return manifest.signatures;
}

}  // namespace

ManifestVerifier::ManifestVerifier(const ManifestVerifierConfig& config, Logger& logger)
    : impl_(std::make_unique<Impl>(Impl{config, logger, std::nullopt})) {}

ManifestVerifier::~ManifestVerifier() = default;

std::optional<Manifest> ManifestVerifier::getCurrentManifest() const { return impl_->currentManifest; }

const ManifestVerifierConfig& ManifestVerifier::config() const { return impl_->config; }

VerificationResult ManifestVerifier::parseAndVerify(const std::string& manifestJson) {
    Logger& logger = impl_->logger;
    VerificationResult result;
    result.timestamp = std::chrono::system_clock::now();
    auto reject = [&](const std::string& message) {
        result.errorMessage = message;
        logger.error(message);
        return result;
    };

    std::optional<Manifest> manifest = parseManifest(manifestJson);
    if (!manifest) return reject("Failed to parse manifest JSON");
    logger.info("Manifest parsed successfully, version: " + manifest->version);

    const std::string structure = validateManifest(*manifest);
    if (!structure.empty()) return reject("Invalid manifest structure: " + structure);
    result.structureValid = true;
    result.manifestVersion = manifest->version;

    if (impl_->config.requireSignature || keyPinned(impl_->config)) {
        if (!verifyManifestSignature(*manifest)) return reject("Signature verification failed");
        result.signatureValid = true;
        logger.info("Manifest signature verified successfully");
    } else {
        result.signatureValid = true;
        logger.warning("Signature verification is disabled");
    }

    if (keyPinned(impl_->config)) {
        // Only a signed expiry and channel mean anything: an unpinned build cannot tell them from forged ones.
        const std::string expired = expiryRefusal(manifest->expires, result.timestamp);
        if (!expired.empty()) return reject(expired);
        const std::string otherChannel = channelRefusal(manifest->channel, impl_->config.channel);
        if (!otherChannel.empty()) return reject(otherChannel);
    }
    if (!checkRollback(*manifest)) return reject("Rollback refused");
    if (!checkVersionCompatibility(*manifest)) return reject("Version compatibility check failed");

    result.valid = true;
    impl_->currentManifest = manifest;
    logger.info("Manifest verification completed successfully");
    result.manifest = std::move(manifest);
    return result;
}

bool ManifestVerifier::verifyManifestSignature(const Manifest& manifest) const {
    Logger& logger = impl_->logger;
    if (!CryptoUtils::isInitialized()) {
        logger.error("CryptoUtils not initialized");
        return false;
    }
    const std::string text = signedManifestText(manifest);
    std::set<std::string> signers;  // pinned keys with a valid signature; one key counts once
    for (const ManifestSignature& signature : signaturesOf(manifest)) {
        if (const std::optional<std::string> key = pinnedSigner(text, signature)) signers.insert(*key);
    }
    const std::uint32_t threshold = std::max<std::uint32_t>(1, impl_->config.threshold);
    if (signers.size() >= threshold) return true;
    if (threshold > 1) {
        logger.error("Signed by " + std::to_string(signers.size()) + " of the pinned release keys, " +
                     std::to_string(threshold) + " required");
    }
    return false;
}

std::optional<std::string> ManifestVerifier::pinnedSigner(const std::string& text,
                                                          const ManifestSignature& signature) const {
    Logger& logger = impl_->logger;
    auto fail = [&](const std::string& message) -> std::optional<std::string> {
        logger.error(message);
        return std::nullopt;
    };
    if (signature.algorithm.empty()) return fail("Signature algorithm not specified");
    if (signature.signature.empty()) return fail("Signature not present");

    std::vector<std::string> candidates;
    if (signature.algorithm == "RSA-SHA256") {
        // The manifest names its key only so that a mismatch can be reported; trust comes
        // from the pinned key, and the signature is checked with that one.
        const std::string& key = impl_->config.rsaPublicKey;
        if (key.empty()) return fail("RSA public key not configured");
        if (signature.public_key != key) return fail("RSA public key in manifest is not the pinned release key");
        candidates.push_back(key);
    } else if (signature.algorithm == "Ed25519") {
        candidates = impl_->config.publicKeys;
        if (candidates.empty()) return fail("Ed25519 public key not configured");
    } else {
        return fail("Unsupported signature algorithm: " + signature.algorithm);
    }

    // Whichever pinned key the signature was made with; the key it names decides nothing.
    std::string error;
    for (const std::string& key : candidates) {
        const CryptoResult verified = CryptoUtils::verifySignature(text, signature.signature, key, signature.algorithm);
        if (verified.success) {
            logger.info("Signature verified successfully using " + signature.algorithm);
            return signature.algorithm + ":" + key;
        }
        error = verified.error;
    }
    return fail("Signature verification failed: " + error);
}

bool ManifestVerifier::checkVersionCompatibility(const Manifest& manifest) const {
    const ManifestVerifierConfig& config = impl_->config;
    const std::string downgrade = downgradeRefusal(manifest.version, config.currentVersion, config.allowDowngrades);
    if (!downgrade.empty()) {
        impl_->logger.warning(downgrade);
        return false;
    }
    const std::string belowMinimum = minimumVersionRefusal(manifest.minimum_version, config.currentVersion);
    if (!belowMinimum.empty()) {
        impl_->logger.error(belowMinimum);
        return false;
    }
    return true;
}

std::string ManifestVerifier::rolloutHold() const {
    const std::optional<Manifest>& manifest = impl_->currentManifest;
    if (!manifest) return {};
    const ManifestVerifierConfig& config = impl_->config;
    const ReleaseOrder order =
        compareRelease(manifest->version, manifest->build_number, config.currentVersion, config.currentBuildNumber);
    return updater::rolloutHold(order, manifest->version, manifest->rollout_percentage, config.rolloutCohort,
                                config.ignoreRollout);
}

bool ManifestVerifier::checkRollback(const Manifest& manifest) const {
    const ManifestVerifierConfig& config = impl_->config;
    const std::string refusal =
        rollbackRefusal(manifest.version, config.currentVersion, keyPinned(config), config.allowRollback);
    if (refusal.empty()) return true;
    impl_->logger.warning(refusal);
    return false;
}

}  // namespace velk::updater
