#include "release/version_decision.hpp"

#include "release/manifest.hpp"
#include "release/version_order.hpp"

namespace velk::updater {
namespace {

bool olderThanInstalled(const std::string& version, const std::string& installedVersion) {
    return !installedVersion.empty() && compareVersionComponents(version, installedVersion) < 0;
}

ValidationResult verdict(bool valid, std::string message) {
    ValidationResult result;
    result.valid = valid;
    result.message = std::move(message);
    return result;
}

}  // namespace

ReleaseOrder compareRelease(const std::string& version, const std::string& build, const std::string& installedVersion,
                            const std::string& installedBuild) {
    const int byVersion = compareVersionComponents(version, installedVersion);
    if (byVersion > 0) return ReleaseOrder::NewerVersion;
    if (byVersion < 0) return ReleaseOrder::OlderVersion;
    const int byBuild = compareBuildNumbers(build, installedBuild);
    if (byBuild > 0) return ReleaseOrder::NewerBuild;
    return byBuild < 0 ? ReleaseOrder::OlderBuild : ReleaseOrder::Same;
}

bool shouldApply(ReleaseOrder order, bool allowDowngrades) {
    switch (order) {
        case ReleaseOrder::NewerVersion:
        case ReleaseOrder::NewerBuild:
            return true;
        case ReleaseOrder::Same:
            return false;
        case ReleaseOrder::OlderBuild:
        case ReleaseOrder::OlderVersion:
            return allowDowngrades;
    }
    return false;
}

std::string downgradeRefusal(const std::string& version, const std::string& installedVersion, bool allowDowngrades) {
    if (allowDowngrades || !olderThanInstalled(version, installedVersion)) return {};
    return "Downgrade detected: " + version + " < " + installedVersion;
}

std::string minimumVersionRefusal(const std::string& minimumVersion, const std::string& installedVersion) {
    if (minimumVersion.empty() || installedVersion.empty() ||
        compareVersionComponents(installedVersion, minimumVersion) >= 0) {
        return {};
    }
    return "Current version " + installedVersion + " below minimum required " + minimumVersion;
}

std::string rollbackRefusal(const std::string& version, const std::string& installedVersion, bool keyPinned,
                            bool allowRollback) {
    if (!keyPinned || allowRollback || !olderThanInstalled(version, installedVersion)) return {};
    return "Rollback refused: release " + version + " is older than installed " + installedVersion +
           " (--force installs it)";
}

std::string expiryRefusal(const std::string& expires, std::chrono::system_clock::time_point now) {
    if (expires.empty()) return "Manifest has no expiry";
    const auto expiry = parseIsoTime(expires);
    if (expiry == std::chrono::system_clock::time_point{} || expiry <= now) return "Manifest expired on " + expires;
    return {};
}

std::string channelRefusal(const std::string& manifestChannel, const std::string& requestedChannel) {
    if (manifestChannel == requestedChannel) return {};
    return "Manifest is for channel " + manifestChannel + ", not " + requestedChannel;
}

bool inRollout(std::uint32_t cohort, std::uint32_t percentage) {
    return static_cast<std::uint64_t>(cohort) * 100 < static_cast<std::uint64_t>(percentage) * kRolloutCohorts;
}

std::string rolloutHold(ReleaseOrder order, const std::string& version, std::uint32_t percentage,
                        std::uint32_t cohort, bool force) {
    const bool versionChange = order == ReleaseOrder::NewerVersion || order == ReleaseOrder::NewerBuild;
    if (!versionChange || force || inRollout(cohort, percentage)) return {};
    return "Release " + version + " is rolled out to " + std::to_string(percentage) +
           "% of installations; this installation is not included yet";
}

ValidationResult validateVersion(const std::string& installedVersion, const std::string& targetVersion,
                                 bool allowDowngrades) {
    if (targetVersion.empty()) return verdict(false, "Target version is empty");
    if (installedVersion.empty()) {
        return verdict(true, "No installed version found - assuming fresh install or legacy version");
    }
    const int order = compareVersionComponents(installedVersion, targetVersion);
    if (order == 0) return verdict(true, "Target version matches installed version (" + installedVersion + ")");
    if (order < 0) return verdict(true, "Upgrade: " + installedVersion + " -> " + targetVersion);
    if (allowDowngrades) return verdict(true, "Downgrade allowed: " + installedVersion + " -> " + targetVersion);
    return verdict(false, "Downgrade detected: installed version " + installedVersion +
                              " is newer than target version " + targetVersion);
}

}  // namespace velk::updater
