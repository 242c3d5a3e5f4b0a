#include "release/manifest_verifier.hpp"

#include "crypto/crypto_utils.hpp"
#include "release/manifest_verifier_impl.hpp"
#include "release/signed_text.hpp"
#include "release/version_decision.hpp"

namespace velk::updater {

namespace {

bool keyPinned(const ManifestVerifierConfig& config) {
    return !config.publicKey.empty() || !config.rsaPublicKey.empty();
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
    const ManifestSignature& signature = manifest.signature;
    auto fail = [&](const std::string& message) {
        logger.error(message);
        return false;
    };
    if (!CryptoUtils::isInitialized()) return fail("CryptoUtils not initialized");
    if (signature.algorithm.empty()) return fail("Signature algorithm not specified");
    if (signature.signature.empty()) return fail("Signature not present");

    std::string key;
    if (signature.algorithm == "RSA-SHA256") {
        // The manifest names its key only so that a mismatch can be reported; trust comes
        // from the pinned key, and the signature is checked with that one.
        key = impl_->config.rsaPublicKey;
        if (key.empty()) return fail("RSA public key not configured");
        if (signature.public_key != key) return fail("RSA public key in manifest is not the pinned release key");
    } else if (signature.algorithm == "Ed25519") {
        key = impl_->config.publicKey;
        if (key.empty()) return fail("Ed25519 public key not configured");
    } else {
        return fail("Unsupported signature algorithm: " + signature.algorithm);
    }

    const CryptoResult verified =
        CryptoUtils::verifySignature(signedManifestText(manifest), signature.signature, key, signature.algorithm);
    if (!verified.success) return fail("Signature verification failed: " + verified.error);
    logger.info("Signature verified successfully using " + signature.algorithm);
    return true;
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

bool ManifestVerifier::checkRollback(const Manifest& manifest) const {
    const ManifestVerifierConfig& config = impl_->config;
    const std::string refusal =
        rollbackRefusal(manifest.version, config.currentVersion, keyPinned(config), config.allowRollback);
    if (refusal.empty()) return true;
    impl_->logger.warning(refusal);
    return false;
}

}  // namespace velk::updater
