#include <filesystem>

#include "apply/update_client.hpp"
#include "installation/installation.hpp"
#include "installation/product_files.hpp"
#include "platform/services.hpp"

namespace velk::updater {

namespace fs = std::filesystem;

namespace {

bool registerService(Logger& logger, const InstallationLayout& layout) {
    logger.info("Installing VELK service...");
    const int status = registerProductService(layout);
    if (status != 0) {
        logger.error("Failed to install VELK service (exit code: " + std::to_string(status) + ")");
        return false;
    }
    logger.info("VELK service installed successfully");
    return true;
}

// The driver package goes ahead without some of its files; the INF decides what it needs.
void reportMissingDriverFiles(Logger& logger, const InstallationLayout& layout) {
    bool fileMissing = false;
    for (const char* name : product::kDriverFiles) {
        const std::string path = layout.productFile(name);
        if (fs::exists(path)) {
            logger.debug("Driver file found: " + path);
        } else {
            logger.warning("Expected driver file not found: " + path);
            fileMissing = true;
        }
    }
    if (fileMissing) logger.warning("Some expected driver files are missing - proceeding anyway");
}

void reportDriverFailure(Logger& logger, const InstallationLayout& layout, int status) {
    logger.error("Failed to install VELK driver (exit code: " + std::to_string(status) + ")");
    if (status == platform::kFileNotFound) {
        logger.error("ERROR_FILE_NOT_FOUND (2): Driver files are missing or inaccessible");
        logger.error("Troubleshooting steps:");
        logger.error("1. Verify VELK installation directory: " + layout.installDirectory());
        logger.error("2. Ensure VELK_Sys.inf exists in the installation directory");
        logger.error("3. Check that all driver files referenced in the INF are present");
        logger.error("4. Verify file permissions allow read access");
        logger.error("5. Try re-running the VELK installer");
    } else if (status == platform::kDriverPackageExists) {
        logger.warning("No devices match the driver or a better driver is already installed");
    } else {
        logger.error("Unknown driver installation error. Check Windows Event Log for details");
    }
}

bool installDriver(Logger& logger, const InstallationLayout& layout) {
    logger.info("Installing VELK driver...");
    const std::string inf = layout.productFile(product::kDriverInf);
    if (!fs::exists(inf)) {
        logger.error("Driver INF file not found: " + inf);
        logger.error("Please ensure VELK is properly installed and all driver files are present");
        return false;
    }
    logger.info("Driver INF file found: " + inf);
    reportMissingDriverFiles(logger, layout);

    logger.info("Executing: " + platform::addDriverPackageCommand(inf));
    const int status = platform::addDriverPackage(inf);
    if (status != 0) {
        reportDriverFailure(logger, layout, status);
        return false;
    }
    logger.info("VELK driver installed successfully");
    if (platform::findDriverPackage(product::kDriverStoreMatch) == 0) {
        logger.info("Driver verification successful - VELK driver found in driver store");
    } else {
        logger.warning("Driver verification failed - driver may not be properly installed");
    }
    return true;
}

}  // namespace

bool UpdateClient::serviceExists(const std::string& serviceName) {
    const platform::ServicePresence presence = platform::queryServicePresence(serviceName);
    if (!presence.managerOpened) {
        logger.error("Failed to open service manager");
        return false;
    }
    return presence.serviceOpened;
}

bool UpdateClient::installServices() {
    logger.info("Checking and installing VELK services...");
    bool result = true;
    if (serviceExists(product::kServiceName)) {
        logger.info("VELK service already installed");
    } else {
        result = registerService(logger, layout);
    }
    if (serviceExists(product::kDriverName)) {
        logger.info("VELK driver already installed");
    } else {
        result = installDriver(logger, layout) && result;
    }
    cleanupBackupFiles();
    return result;
}

}  // namespace velk::updater
