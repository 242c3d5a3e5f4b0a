#include <string>

#include "install/version_record.hpp"
#include "manifest/manifest_verifier_impl.hpp"

namespace velk::updater {
namespace {

long long buildValue(const std::string& text) {
    if (text.empty()) return 0;
    try {
        return std::stoll(text);
    } catch (const std::exception&) {
        return 0;
    }
}

template <typename T>
int order(T a, T b) {
    return a < b ? -1 : (a > b ? 1 : 0);
}

std::string label(int comparison) {
    return comparison > 0 ? "NEWER" : (comparison < 0 ? "OLDER" : "SAME");
}

}  // namespace

int compareBuildNumbers(const std::string& a, const std::string& b) {
    if (a == b) return 0;
    return order(buildValue(a), buildValue(b));
}

bool ManifestVerifier::analyzeVersionComparison() const {
    const std::optional<Manifest>& manifest = impl_->currentManifest;
    if (!manifest) return false;
    Logger& logger = impl_->logger;
    const std::string& installed = impl_->config.currentVersion;
    const std::string& installedBuild = impl_->config.currentBuildNumber;
    const bool allowDowngrades = impl_->config.allowDowngrades;

    logger.info("=== Version Comparison Analysis ===");
    logger.info("Installed VELK version: " + installed + " build " + installedBuild);
    logger.info("Manifest version: " + manifest->version + " build " + manifest->build_number);
    logger.info("Updater version: 1.0.0");
    logger.info(std::string("Allow downgrades: ") + (allowDowngrades ? "YES" : "NO"));
    const int version = compareVersionComponents(manifest->version, installed);
    logger.info("Version comparison: " + manifest->version + " vs " + installed + " = " + label(version));

    if (version > 0) {
        logger.info("[OK] UPDATE AVAILABLE: Manifest version is newer than installed version");
        logger.info("Update type: VERSION UPDATE (" + installed + " -> " + manifest->version + ")");
        return true;
    }
    if (version < 0) {
        logger.info("[WARN] DOWNGRADE DETECTED: Manifest version is older than installed version");
        logger.info("Downgrade: " + installed + " -> " + manifest->version);
        logger.info(allowDowngrades ? "[OK] DOWNGRADE ALLOWED: allow_downgrades is enabled"
                                    : "[BLOCKED] DOWNGRADE BLOCKED: allow_downgrades is disabled");
        return allowDowngrades;
    }

    const int build = compareBuildNumbers(manifest->build_number, installedBuild);
    const std::string from = installed + "." + installedBuild;
    const std::string to = manifest->version + "." + manifest->build_number;
    logger.info("Build comparison: " + manifest->build_number + " vs " + installedBuild + " = " + label(build));
    if (build > 0) {
        logger.info("[OK] PATCH UPDATE AVAILABLE: Same version, newer build number");
        logger.info("Update type: PATCH UPDATE (" + from + " -> " + to + ")");
        return true;
    }
    if (build == 0) {
        logger.info("[OK] NO UPDATE NEEDED: Already at the exact same version and build");
        logger.info("Current: " + from);
        logger.info("Manifest: " + to);
        return false;
    }
    logger.info("[WARN] BUILD DOWNGRADE DETECTED: Same version, older build number");
    logger.info("Build downgrade: " + from + " -> " + to);
    logger.info(allowDowngrades ? "[OK] BUILD DOWNGRADE ALLOWED: allow_downgrades is enabled"
                                : "[BLOCKED] BUILD DOWNGRADE BLOCKED: allow_downgrades is disabled");
    return allowDowngrades;
}

}  // namespace velk::updater
