#include <string>

#include "release/manifest_verifier_impl.hpp"
#include "release/version_decision.hpp"

// The verifier's report of how the current manifest stands against the installed version;
// the decision itself is compareRelease and shouldApply.
namespace velk::updater {
namespace {

std::string versionLabel(ReleaseOrder order) {
    if (order == ReleaseOrder::NewerVersion) return "NEWER";
    return order == ReleaseOrder::OlderVersion ? "OLDER" : "SAME";
}

std::string buildLabel(ReleaseOrder order) {
    if (order == ReleaseOrder::NewerBuild) return "NEWER";
    return order == ReleaseOrder::OlderBuild ? "OLDER" : "SAME";
}

}  // namespace

bool ManifestVerifier::analyzeVersionComparison() const {
    const std::optional<Manifest>& manifest = impl_->currentManifest;
    if (!manifest) return false;
    Logger& logger = impl_->logger;
    const std::string& installed = impl_->config.currentVersion;
    const std::string& installedBuild = impl_->config.currentBuildNumber;
    const bool allowDowngrades = impl_->config.allowDowngrades;
    const ReleaseOrder order = compareRelease(manifest->version, manifest->build_number, installed, installedBuild);
    const bool apply = shouldApply(order, allowDowngrades);

    logger.info("=== Version Comparison Analysis ===");
    logger.info("Installed VELK version: " + installed + " build " + installedBuild);
    logger.info("Manifest version: " + manifest->version + " build " + manifest->build_number);
    logger.info("Updater version: 1.0.0");
    logger.info(std::string("Allow downgrades: ") + (allowDowngrades ? "YES" : "NO"));
    logger.info("Version comparison: " + manifest->version + " vs " + installed + " = " + versionLabel(order));

    if (order == ReleaseOrder::NewerVersion) {
        logger.info("[OK] UPDATE AVAILABLE: Manifest version is newer than installed version");
        logger.info("Update type: VERSION UPDATE (" + installed + " -> " + manifest->version + ")");
        return apply;
    }
    if (order == ReleaseOrder::OlderVersion) {
        logger.info("[WARN] DOWNGRADE DETECTED: Manifest version is older than installed version");
        logger.info("Downgrade: " + installed + " -> " + manifest->version);
        logger.info(apply ? "[OK] DOWNGRADE ALLOWED: allow_downgrades is enabled"
                          : "[BLOCKED] DOWNGRADE BLOCKED: allow_downgrades is disabled");
        return apply;
    }

    const std::string from = installed + "." + installedBuild;
    const std::string to = manifest->version + "." + manifest->build_number;
    logger.info("Build comparison: " + manifest->build_number + " vs " + installedBuild + " = " + buildLabel(order));
    if (order == ReleaseOrder::NewerBuild) {
        logger.info("[OK] PATCH UPDATE AVAILABLE: Same version, newer build number");
        logger.info("Update type: PATCH UPDATE (" + from + " -> " + to + ")");
    } else if (order == ReleaseOrder::Same) {
        logger.info("[OK] NO UPDATE NEEDED: Already at the exact same version and build");
        logger.info("Current: " + from);
        logger.info("Manifest: " + to);
    } else {
        logger.info("[WARN] BUILD DOWNGRADE DETECTED: Same version, older build number");
        logger.info("Build downgrade: " + from + " -> " + to);
        logger.info(apply ? "[OK] BUILD DOWNGRADE ALLOWED: allow_downgrades is enabled"
                          : "[BLOCKED] BUILD DOWNGRADE BLOCKED: allow_downgrades is disabled");
    }
    return apply;
}

}  // namespace velk::updater
