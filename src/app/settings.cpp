#include "app/settings.hpp"

#include <map>

#include "app/release_keys.hpp"
#include "installation/installation.hpp"
#include "installation/logging_settings.hpp"
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
    return InstallationLayout(std::move(installDirectory), getTempDirectory());
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
                                          const std::string& installedBuildNumber) {
    const ReleaseKeys keys = pinnedReleaseKeys();
    ManifestVerifierConfig config;
    config.publicKey = keys.ed25519PublicKey;
    config.rsaPublicKey = keys.rsaPublicKey;
    config.currentVersion = installedVersion;
    config.currentBuildNumber = installedBuildNumber;
    config.channel = options.channel;
    config.requireSignature = keys.pinned();
    config.allowDowngrades = !(options.disableDowngrades && !options.force);
    config.allowRollback = options.force;
    return config;
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
