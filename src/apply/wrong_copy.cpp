#include "apply/wrong_copy.hpp"

namespace velk::updater {

namespace fs = std::filesystem;

namespace {

// Logs "Successfully deleted <kind> file: ..." and, when asked, a warning if nothing was
// removed.
void deleteWrongCopy(Logger& logger, const fs::path& path, const std::string& name, const std::string& kind,
                     bool warnWhenNothingRemoved) {
    try {
        if (fs::remove(path)) {
            logger.info("Successfully deleted " + kind + " file: " + name);
        } else if (warnWhenNothingRemoved) {
            logger.warning("Failed to delete " + kind + " file: " + name);
        }
    } catch (const std::exception& error) {
        logger.error("Exception while deleting " + kind + " file " + name + ": " + error.what());
    }
}

}  // namespace

void discardWrongCopy(Logger& logger, const fs::path& path, const ManifestFile& file, const FileCheck& check,
                      const std::string& hashMismatchLine) {
    switch (check.state) {
        case FileState::SizeMismatch:
            logger.info("File size mismatch for " + file.name + ": expected " + std::to_string(file.size) +
                        ", actual " + std::to_string(check.actualSize));
            logger.info("Deleting corrupted file to force clean re-download: " + path.string());
            deleteWrongCopy(logger, path, file.name, "corrupted", true);
            return;
        case FileState::HashFailed:
            logger.warning("Failed to calculate SHA256 for " + file.name + ": " + check.error);
            logger.info("Deleting file with failed hash calculation: " + path.string());
            deleteWrongCopy(logger, path, file.name, "unverifiable", false);
            return;
        case FileState::HashMismatch:
            logger.info(hashMismatchLine);
            logger.info("Deleting corrupted file to force clean re-download: " + path.string());
            deleteWrongCopy(logger, path, file.name, "hash-mismatched", true);
            return;
        case FileState::Missing:
        case FileState::Current:
            return;
    }
}

}  // namespace velk::updater
