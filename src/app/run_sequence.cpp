#include "app/run_sequence.hpp"

#include <iostream>
#include <memory>
#include <optional>
#include <string>

#include "app/settings.hpp"
#include "apply/update_client.hpp"
#include "common/text.hpp"
#include "crypto/crypto_utils.hpp"
#include "installation/installation.hpp"
#include "installation/logging_settings.hpp"
#include "installation/product_files.hpp"
#include "installation/version_record.hpp"
#include "logging/logger.hpp"
#include "platform/clean_text.hpp"
#include "platform/elevation.hpp"
#include "platform/instance_lock.hpp"

namespace velk::updater {
namespace {

std::string enabled(bool on) { return on ? "ENABLED" : "DISABLED"; }
std::string installed(bool present) { return present ? "INSTALLED" : "NOT INSTALLED"; }

// The privilege gate: the exit code when this process must end here, nothing to go on.
std::optional<int> passPrivilegeGate(int argc, char* argv[]) {
    if (platform::isProcessElevated()) {
        std::cout << "Running with administrator privileges.\n";
        return std::nullopt;
    }
    std::cout << "VELK Updater requires administrator privileges.\n";
    std::cout << "Requesting elevation...\n";
    const platform::ElevationResult result = platform::relaunchElevated(argc, argv);
    if (!result.success) {
        std::cerr << "Failed to elevate privileges: " << result.message << "\n";
        std::cerr << "Please run this program as Administrator.\n";
        return 1;
    }
    if (!result.alreadyElevated) {
        std::cout << "Elevation request completed.\n";
        return static_cast<int>(result.exitCode);
    }
    std::cout << "Process is already elevated.\n";
    return std::nullopt;
}

void logBanner(Logger& logger, const UpdaterConfig& config, const InstallationLayout& layout) {
    logger.info("VELK Update Client starting...");
    logger.info("Version: 1.0.0");
    logger.info("Channel: " + config.channel);
    logger.info("Install Directory: " + layout.installDirectory());
    logger.info("Log Directory: " + layout.logDirectory());
    logger.info("Registry-based logging: " + enabled(isUpdaterLoggingEnabled()));
    logger.info("Allow downgrades: " + enabled(!config.disableDowngrades));
    logger.info("Force updates: " + enabled(config.force));
}

void reportInstallationState(Logger& logger, const InstallationLayout& layout) {
    logger.info("Checking VELK installation state...");
    const ValidationResult installation = validateInstallation(layout);
    if (!installation.valid) {
        logger.warning("VELK installation check: " + installation.message);
        std::cout << "WARNING: VELK installation incomplete or corrupted\n";
        if (!installation.missingItems.empty()) {
            std::cout << "Missing files: " + joinNames(installation.missingItems) + "\n";
        }
        std::cout << "\nThe updater will download and install the missing files.\n";
        logger.info("Continuing with update to fix missing/corrupted files");
    } else {
        logger.info("VELK installation state: OK");
        std::cout << "VELK installation state: OK\n";
    }

    logger.info("Checking VELK services and drivers...");
    const ValidationResult services = validateServicesAndDrivers();
    if (!services.valid) {
        logger.warning("VELK services/drivers check: " + services.message);
        std::cout << "WARNING: " + services.message + "\n";
        std::cout << "Services may need to be recreated after update.\n";
    } else {
        logger.info("VELK services and drivers state: OK");
        std::cout << "VELK services and drivers state: OK\n";
    }

    const std::string version = getInstalledVersion();
    const std::string build = getInstalledBuildNumber();
    if (version.empty()) {
        logger.warning("Could not determine installed VELK version from registry");
        std::cout << "WARNING: Could not determine installed VELK version\n";
        return;
    }
    logger.info("Installed VELK version: " + version);
    std::string line = "Installed VELK version: " + version;
    if (!build.empty()) {
        logger.info("Installed VELK build number: " + build);
        line += " (build " + build + ")";
    }
    // Whole lines only: the logger's worker writes to the same console. The registry's text is
    // shown escaped, as in the log.
    std::cout << platform::escapeControlCharacters(line) + "\n";
}

// The installed record's text, or the default (with a note) when the registry has none.
std::string recordedOrDefault(Logger& logger, const std::string& recorded, const std::string& fallback,
                              const std::string& what) {
    if (!recorded.empty()) return recorded;
    logger.info("No installed VELK " + what + " found, using default: " + fallback);
    return fallback;
}

// The fallback registration of the product's service when it is missing. It registers the
// service of the recorded (or default) installation, whatever folder this run updates.
void installServiceFallback(UpdateClient& client, Logger& logger, bool quiet) {
    if (client.serviceExists(product::kServiceName)) {
        logger.info("VELKSvc already installed - no fallback installation needed");
        return;
    }
    logger.warning("VELKSvc not found on system - installing as fallback to ensure game functionality");
    if (!quiet) std::cout << "Installing missing VELK service to ensure game functionality...\n";

    std::string base = getRegistryInstallPath();
    if (base.empty()) {
        logger.warning("Registry InstallPath not found, using fallback detection");
        base = getDefaultInstallDirectory();
    } else {
        logger.info("Using registry InstallPath: " + base);
    }
    const int status = registerProductService(InstallationLayout(base));
    if (status != 0) {
        logger.error("Failed to install VELKSvc as fallback (exit code: " + std::to_string(status) + ")");
        logger.error("This may cause game functionality issues");
        if (!quiet) std::cout << "WARNING: Failed to install VELK service - game may not function properly\n";
        return;
    }
    logger.info("VELKSvc installed successfully as fallback");
    if (!quiet) std::cout << "VELK service installed successfully\n";
}

int runInstallServicesMode(UpdateClient& client, Logger& logger, bool quiet) {
    logger.info("Installing VELK services...");
    if (!client.installServices()) {
        std::cout << "Failed to install one or more VELK services\n";
        logger.error("Failed to install one or more VELK services");
        return 1;
    }
    std::cout << "VELK services installed successfully\n";
    logger.info("VELK services installed successfully");
    const std::string service = installed(client.serviceExists(product::kServiceName));
    const std::string driver = installed(client.serviceExists(product::kDriverName));
    logger.info("Service installation status:");
    logger.info("  VELK Service: " + service);
    logger.info("  VELK Driver: " + driver);
    if (!quiet) {
        std::cout << "Service installation status:\n";
        std::cout << "  VELK Service: " + service + "\n";
        std::cout << "  VELK Driver: " + driver + "\n";
        std::cout << "NOTE: Services are installed but not started. They will be managed by the game launcher.\n";
    }
    logger.info("Performing final backup cleanup...");
    client.cleanupBackupFiles();
    return 0;
}

bool takeManifest(UpdateClient& client, Logger& logger, const UpdaterConfig& config) {
    if (!config.manifestFile.empty()) return client.checkForUpdatesFromFile(config.manifestFile);
    const std::string url = manifestUrlForChannel(config.channel);
    logger.info("Manifest URL: " + url);
    return client.checkForUpdates(url);
}

int runCheckMode(UpdateClient& client, Logger& logger, const UpdaterConfig& config) {
    logger.info("Checking for updates...");
    if (takeManifest(client, logger, config)) {
        std::cout << "Update check completed successfully\n";
        logger.info("Update check completed successfully");
        return 0;
    }
    std::cout << "Update check failed\n";
    logger.error("Update check failed");
    return 1;
}

int runUpdateMode(UpdateClient& client, Logger& logger, const UpdaterConfig& config) {
    logger.info("Checking for updates and applying them...");
    if (takeManifest(client, logger, config)) {
        std::cout << "Update process completed successfully\n";
        logger.info("Update process completed successfully");
    } else {
        std::cout << "Update process failed or no updates available\n";
        logger.warning("Update process failed or no updates available");
    }
    return 0;
}

}  // namespace

int runSequence(UpdaterConfig& config, int argc, char* argv[]) {
    if (const auto ended = passPrivilegeGate(argc, argv)) return *ended;

    // An unreadable registry would read as "not installed" and send the run to the
    // default folder, beside the real installation: stop before anything is created.
    if (const auto error = productRecordError()) {
        std::cerr << "Failed to read the registry: " + *error + "\n";
        return 1;
    }
    const InstallationLayout layout = makeInstallationLayout(config);
    const std::string& installDirectory = layout.installDirectory();
    // One run per installation, from before the first write until main returns; the
    // unelevated parent of an elevated run never takes it.
    const platform::InstanceLock lock(installDirectory);
    if (lock.status() == platform::LockStatus::Busy) {
        std::cerr << "Another VELK_Updater is already running\n";
        return 1;
    }
    if (lock.status() == platform::LockStatus::Failed) {
        std::cerr << "Failed to lock the installation " + platform::escapeControlCharacters(installDirectory) + "\n";
        return 1;
    }
    const LoggerConfig loggerConfig = makeLoggerConfig(config, layout);
    Logger logger(loggerConfig);
    if (!logger.initialize()) {
        std::cerr << "Failed to initialize logger\n";
        return 1;
    }
    cleanupOldLogs(layout.logDirectory(), logger);
    logBanner(logger, config, layout);

    if (!config.installServices) reportInstallationState(logger, layout);

    const std::string version = recordedOrDefault(logger, getInstalledVersion(), "0.0.0", "version");
    const std::string build = recordedOrDefault(logger, getInstalledBuildNumber(), "0", "build number");
    logger.info("Version comparison will use: " + version + " build " + build);

    if (!CryptoUtils::initialize()) {
        logger.error("Failed to initialize cryptographic utilities");
        std::cerr << "Failed to initialize cryptographic utilities\n";
        return 1;
    }
    logger.info("Cryptographic utilities initialized successfully");

    const ManifestVerifierConfig verifierConfig = makeVerifierConfig(config, version, build, rolloutCohort());
    UpdateClient client(makeHttpConfig(), makeFileUpdaterConfig(layout), verifierConfig, makeSelfUpdaterConfig(layout),
                        logger);
    if (!client.initialize()) {
        logger.error("Failed to initialize update client");
        std::cerr << "Failed to initialize update client\n";
        return 1;
    }

    int exitCode = 0;
    try {
        installServiceFallback(client, logger, config.quiet);
        if (config.installServices) {
            exitCode = runInstallServicesMode(client, logger, config.quiet);
        } else if (config.checkOnly) {
            exitCode = runCheckMode(client, logger, config);
        } else {
            exitCode = runUpdateMode(client, logger, config);
        }
    } catch (const std::exception& error) {
        logger.critical(std::string("Unhandled exception: ") + error.what());
        std::cerr << "Critical error: " << error.what() << "\n";
        exitCode = 1;
    }

    client.finalCleanup();
    CryptoUtils::cleanup();
    logger.info("VELK Update Client shutting down");
    logger.shutdown();
    return exitCode;
}

}  // namespace velk::updater
