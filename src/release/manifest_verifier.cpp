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

// Which pinned key made a signature over the signed text ("<algorithm>:<key>"), or why none did.
struct SignatureCheck {
    std::string signer;
    std::string problem;
};

SignatureCheck refused(std::string problem) { return {"", std::move(problem)}; }

SignatureCheck checkSignature(const ManifestVerifierConfig& config, const std::string& text,
                              const ManifestSignature& signature) {
    if (signature.algorithm.empty()) return refused("Signature algorithm not specified");
    if (signature.signature.empty()) return refused("Signature not present");

    std::vector<std::string> candidates;
    if (signature.algorithm == "RSA-SHA256") {
        // The manifest names its key only so that a mismatch can be reported; trust comes
        // from the pinned key, and the signature is checked with that one.
        if (config.rsaPublicKey.empty()) return refused("RSA public key not configured");
        if (signature.public_key != config.rsaPublicKey) {
            return refused("RSA public key in manifest is not the pinned release key");
        }
        candidates.push_back(config.rsaPublicKey);
    } else if (signature.algorithm == "Ed25519") {
        candidates = config.publicKeys;
        if (candidates.empty()) return refused("Ed25519 public key not configured");
    } else {
        return refused("Unsupported signature algorithm: " + signature.algorithm);
    }

    // Whichever pinned key the signature was made with; the key it names decides nothing.
    std::string error;
    for (const std::string& key : candidates) {
        const CryptoResult verified = CryptoUtils::verifySignature(text, signature.signature, key, signature.algorithm);
        if (verified.success) return {signature.algorithm + ":" + key, ""};
        error = verified.error;
    }
    return refused("Signature verification failed: " + error);
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
    std::vector<std::string> problems;
    for (const ManifestSignature& signature : signaturesOf(manifest)) {
        const SignatureCheck check = checkSignature(impl_->config, text, signature);
        if (check.signer.empty()) {
            problems.push_back(check.problem);
        } else if (signers.insert(check.signer).second) {
            logger.info("Signature verified successfully using " + signature.algorithm);
        }
    }
    const std::uint32_t threshold = std::max<std::uint32_t>(1, impl_->config.threshold);
    if (signers.size() >= threshold) {
        // Enough pinned keys signed: a signature by another key (a rotated one) is no fault.
        for (const auto& problem : problems) logger.debug("Ignored a signature: " + problem);
        return true;
    }
    for (const auto& problem : problems) logger.error(problem);
    if (threshold > 1) {
        logger.error("Signed by " + std::to_string(signers.size()) + " of the pinned release keys, " +
                     std::to_string(threshold) + " required");
    }
    return false;
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
