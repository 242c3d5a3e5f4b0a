#include <cctype>
#include <filesystem>

#include "apply/file_updater.hpp"
#include "apply/file_updater_impl.hpp"
#include "apply/wrong_copy.hpp"
#include "delivery/file_check.hpp"

// The file updater's checks of installed copies and of downloads.
namespace velk::updater {
namespace {

namespace fs = std::filesystem;

std::string differences(const std::string& expected, const std::string& actual) {
    std::string text;
    for (std::size_t i = 0; i < expected.size(); ++i) {
        if (std::tolower(static_cast<unsigned char>(expected[i])) != std::tolower(static_cast<unsigned char>(actual[i]))) {
            text += "Position " + std::to_string(i) + ": expected '" + expected[i] + "', got '" + actual[i] + "' ";
        }
    }
    return text;
}

}  // namespace

bool FileUpdater::checkFileCurrent(const ManifestFile& file) {
    Logger& logger = impl_->logger;
    try {
        const InstallationLayout& layout = impl_->config.layout;
        const fs::path path = layout.targetFile(file.target_path);
        requireInside(layout.installDirectory(), path);
        const FileCheck check = checkFile(path, file, DigestCase::IgnoreCase);
        if (check.state == FileState::Missing) {
            logger.debug("File does not exist: " + file.name);
            return false;
        }
        if (check.current()) {
            logger.debug("File " + file.name + " is up to date (SHA256 verified)");
            return true;
        }
        reportWrongCopy(logger, path, file, check,
                         "File " + file.name + " SHA256 mismatch: expected " + file.sha256.substr(0, 16) +
                             "..., actual " + check.actualSha256.substr(0, 16) + "...");
        return false;
    } catch (const std::exception& error) {
        logger.warning("Error checking file " + file.name + ": " + error.what());
        return false;
    }
}

bool FileUpdater::verifyFileIntegrity(const std::string& path, const std::string& expectedSha256) {
    Logger& logger = impl_->logger;
    logger.info("=== File Integrity Verification ===");
    logger.info("File: " + path);
    logger.info("Expected SHA256: " + expectedSha256);
    try {
        ManifestFile expected;
        expected.sha256 = expectedSha256;
        const std::string known = impl_->downloader.keptDigestOf(path);
        const FileCheck check = checkFile(path, expected, DigestCase::IgnoreCase, false, known);
        if (check.state == FileState::Missing) {
            logger.error("File does not exist for verification: " + path);
            return false;
        }
        logger.info("File size: " + std::to_string(check.actualSize) + " bytes");
        if (check.state == FileState::HashFailed) {
            logger.error("Failed to calculate SHA256 for " + path + ": " + check.error);
            return false;
        }
        const std::string& actual = check.actualSha256;
        logger.info("Actual SHA256: " + actual);
        if (check.current()) {
            logger.info("[OK] SHA256 verification PASSED");
            return true;
        }
        logger.error("[FAILED] SHA256 verification FAILED");
        logger.error("Hash mismatch details:");
        logger.error("  Expected: " + expectedSha256);
        logger.error("  Actual:   " + actual);
        if (expectedSha256.size() == actual.size()) {
            const std::string text = differences(expectedSha256, actual);
            if (!text.empty()) logger.error("  Differences: " + text);
        } else {
            logger.error("  Length mismatch: expected " + std::to_string(expectedSha256.size()) + " chars, got " +
                         std::to_string(actual.size()) + " chars");
        }
        return false;
    } catch (const std::exception& error) {
        logger.error(std::string("Failed to get file size for verification: ") + error.what());
        return false;
    }
}

}  // namespace velk::updater
