#include "app/settings.hpp"

#include <map>

#include "app/release_keys.hpp"
#include "crypto/crypto_utils.hpp"
#include "installation/installation.hpp"
#include "installation/logging_settings.hpp"
#include "installation/version_record.hpp"
#include "release/version_decision.hpp"
#include "platform/process.hpp"

namespace velk::updater {
namespace {

LogLevel levelFromName(const std::string& name, LogLevel fallback) {
    static const std::map<std::string, LogLevel> levels = {
        {"trace", LogLevel::Trace},     {"debug", LogLevel::Debug}, {"info", LogLevel::Info},
        {"warning", LogLevel::Warning}, {"error", LogLevel::Error}, {"critical", LogLevel::Critical},
    };
    const auto found = levels.find(name);
    return found == levels.end() ? fallback : found->second;
}

}  // namespace

InstallationLayout makeInstallationLayout(const UpdaterConfig& options) {
    std::string installDirectory = options.installDir.empty() ? getDefaultInstallDirectory() : options.installDir;
    return InstallationLayout(std::move(installDirectory));
}

FileUpdaterConfig makeFileUpdaterConfig(const InstallationLayout& layout) {
    FileUpdaterConfig config;
    config.layout = layout;
    config.createBackups = true;
    config.verifyAfterUpdate = true;
    config.useStaging = true;
    config.deleteTempAfterInstall = true;
    config.baseUrls = {VELK_CDN_BASE_URL, VELK_MIRROR_BASE_URL, VELK_ORIGIN_BASE_URL};
    config.tryArchiveFirst = true;
    // Three more attempts per source, 1 s doubling to 15 s with jitter, a server's Retry-After
    // up to 60 s, and at most 2 minutes of failed attempts and waits in a whole run; a source
    // under 32 KiB/s for 20 s is left while another remains.
    config.maxRetries = 3;
    config.transfer.firstDelay = std::chrono::seconds(1);
    config.transfer.maxDelay = std::chrono::seconds(15);
    config.transfer.retryAfterCap = std::chrono::seconds(60);
    config.transfer.retryBudget = std::chrono::minutes(2);
    config.transfer.minBytesPerSecond = 32 * 1024;
    config.transfer.slowWindowSeconds = 20;
    return config;
}

LoggerConfig makeLoggerConfig(const UpdaterConfig& options, const InstallationLayout& layout) {
    LoggerConfig config;
    if (!isUpdaterLoggingEnabled()) {
        config.sinks = 0;
        return config;
    }
    const std::string levelName =
        options.logLevel.empty() ? readLoggingString("LogLevel", "info") : options.logLevel;
    config.minLevel = levelFromName(levelName, config.minLevel);
    config.sinks = options.quiet ? SinkFile | SinkEventLog : SinkConsole | SinkFile | SinkEventLog | SinkDebugger;
    config.logFilePath = layout.logFile();
    config.useColors = !options.background;
    config.asyncMode = true;
    return config;
}

ManifestVerifierConfig makeVerifierConfig(const UpdaterConfig& options, const std::string& installedVersion,
                                          const std::string& installedBuildNumber, std::uint32_t rolloutCohort) {
    const ReleaseKeys keys = pinnedReleaseKeys();
    ManifestVerifierConfig config;
    config.publicKeys = keys.ed25519PublicKeys;
    config.rsaPublicKey = keys.rsaPublicKey;
    config.threshold = keys.threshold;
    config.currentVersion = installedVersion;
    config.currentBuildNumber = installedBuildNumber;
    // The channel as the manifest URL names it: empty is the stable channel.
    config.channel = options.channel.empty() ? "stable" : options.channel;
    config.requireSignature = keys.pinned();
    config.allowDowngrades = !(options.disableDowngrades && !options.force);
    config.allowRollback = options.force;
    config.rolloutCohort = rolloutCohort;
    config.ignoreRollout = options.force;
    return config;
}

std::uint32_t rolloutCohort() {
    if (const auto kept = getRolloutCohort(); kept && *kept < kRolloutCohorts) return *kept;
    const std::uint32_t drawn = CryptoUtils::randomUniform(kRolloutCohorts);
    // Without a product record to keep it in, the draw holds for this run only.
    setRolloutCohort(drawn);
    return drawn;
}

HttpConfig makeHttpConfig() {
    HttpConfig config;
    config.userAgent = "VELK-Updater/1.0.0";
    config.connectTimeoutSeconds = 30;
    config.requestTimeoutSeconds = 60;
    config.verboseOutput = true;
    return config;
}

SelfUpdaterConfig makeSelfUpdaterConfig(const InstallationLayout& layout) {
    SelfUpdaterConfig config;
    config.installDirectory = layout.installDirectory();
    config.currentExecutable = platform::executablePath();
    if (config.currentExecutable.empty()) config.currentExecutable = layout.productFile("VELK_Updater.exe");
    return config;
}

}  // namespace velk::updater
