#include "manifest/manifest_verifier.hpp"

#include "crypto/crypto_utils.hpp"
#include "install/version_record.hpp"
#include "manifest/manifest_verifier_impl.hpp"

namespace velk::updater {

namespace {

bool keyPinned(const ManifestVerifierConfig& config) {
    return !config.publicKey.empty() || !config.rsaPublicKey.empty();
}

}  // namespace

std::string signedManifestText(const Manifest& manifest) {
    std::string text = manifest.version + manifest.build_number + manifest.git_commit;
    for (const auto& file : manifest.files) text += file.name + file.sha256 + std::to_string(file.size);
    return text;
}

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
    // Numeric components, as the analysis compares them: 10.0.0 is newer than 9.0.0.
    if (!config.allowDowngrades && !config.currentVersion.empty() &&
        compareVersionComponents(manifest.version, config.currentVersion) < 0) {
        impl_->logger.warning("Downgrade detected: " + manifest.version + " < " + config.currentVersion);
        return false;
    }
    if (manifest.minimum_version.empty() || config.currentVersion.empty()) return true;
    if (compareVersionComponents(config.currentVersion, manifest.minimum_version) < 0) {
        impl_->logger.error("Current version " + config.currentVersion + " below minimum required " +
                            manifest.minimum_version);
        return false;
    }
    return true;
}

bool ManifestVerifier::checkRollback(const Manifest& manifest) const {
    const ManifestVerifierConfig& config = impl_->config;
    if (!keyPinned(config) || config.allowRollback || config.currentVersion.empty()) return true;
    if (compareVersionComponents(manifest.version, config.currentVersion) >= 0) return true;
    impl_->logger.warning("Rollback refused: release " + manifest.version + " is older than installed " +
                          config.currentVersion + " (--force installs it)");
    return false;
}

}  // namespace velk::updater
