#include "installation/installation.hpp"

#include <array>
#include <filesystem>
#include <fstream>

#include "common/text.hpp"
#include "installation/product_files.hpp"
#include "installation/version_record.hpp"
#include "platform/known_folders.hpp"
#include "platform/paths.hpp"
#include "platform/services.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

ValidationResult failure(std::string message) {
    ValidationResult result;
    result.message = std::move(message);
    return result;
}

ValidationResult checkWritable(const InstallationLayout& layout) {
    const fs::path testFile = layout.writeTestFile();
    std::ofstream probe(testFile, std::ios::out | std::ios::trunc);
    if (!probe.is_open()) {
        return failure("Installation directory is not writable: " + layout.installDirectory());
    }
    probe << "test";
    probe.close();
    fs::remove(testFile);
    ValidationResult result;
    result.valid = true;
    result.message = "VELK installation validated successfully";
    return result;
}

}  // namespace

std::string getRegistryInstallPath() {
    std::string path = readProductString("InstallPath");
    while (!path.empty() && (path.back() == '\\' || path.back() == '/' || path.back() == '\0')) {
        path.pop_back();
    }
    return path;
}

std::string getDefaultInstallDirectory() {
    const std::string registered = getRegistryInstallPath();
    if (!registered.empty()) return registered;
    if (const auto programFiles = platform::programFilesFolder()) {
        return platform::joinPath(*programFiles, "VELK");
    }
    return "C:\\Program Files\\VELK";
}

ValidationResult validateInstallation(const InstallationLayout& layout) {
    const std::string& installDirectory = layout.installDirectory();
    if (installDirectory.empty()) return failure("Installation directory is empty");
    const fs::path directory(installDirectory);
    if (!fs::exists(directory)) {
        return failure("Installation directory does not exist: " + installDirectory);
    }
    if (!fs::is_directory(directory)) {
        return failure("Installation path is not a directory: " + installDirectory);
    }

    ValidationResult result;
    for (const char* name : product::kRequiredFiles) {
        if (!fs::exists(layout.productFile(name))) result.missingItems.emplace_back(name);
    }
    if (!result.missingItems.empty()) {
        result.message = "Missing required VELK files in " + installDirectory + ": " +
                         joinNames(result.missingItems);
        return result;
    }

    try {
        return checkWritable(layout);
    } catch (const std::exception& error) {
        return failure("Cannot write to installation directory " + installDirectory + ": " +
                       error.what());
    }
}

ValidationResult validateServicesAndDrivers() {
    std::vector<std::string> missing;
    if (!isServiceInstalled(product::kServiceName)) missing.emplace_back(std::string(product::kServiceName) + " service");
    if (!isDriverInstalled(product::kDriverName)) missing.emplace_back(std::string(product::kDriverName) + " driver");
    if (!missing.empty()) return failure("Missing VELK services/drivers: " + joinNames(missing));
    ValidationResult result;
    result.valid = true;
    result.message = "VELK services and drivers validated successfully";
    return result;
}

bool isServiceInstalled(const std::string& name) {
    return platform::queryServicePresence(name).serviceOpened;
}

int registerProductService(const InstallationLayout& layout) {
    const int status = platform::createService(product::kServiceName, product::kServiceDisplayName,
                                               layout.productFile(product::kServiceExecutable));
    if (status == 0) platform::setServiceDescription(product::kServiceName, product::kServiceDescription);
    return status;
}

}  // namespace velk::updater
