#include "apply/wrong_copy.hpp"

namespace velk::updater {

namespace fs = std::filesystem;

void reportWrongCopy(Logger& logger, const fs::path& path, const ManifestFile& file, const FileCheck& check,
                     const std::string& hashMismatchLine) {
    switch (check.state) {
        case FileState::SizeMismatch:
            logger.info("File size mismatch for " + file.name + ": expected " + std::to_string(file.size) +
                        ", actual " + std::to_string(check.actualSize));
            logger.info("Outdated file will be replaced: " + path.string());
            return;
        case FileState::HashFailed:
            logger.warning("Failed to calculate SHA256 for " + file.name + ": " + check.error);
            logger.info("Unverifiable file will be replaced: " + path.string());
            return;
        case FileState::HashMismatch:
            logger.info(hashMismatchLine);
            logger.info("Outdated file will be replaced: " + path.string());
            return;
        case FileState::Missing:
        case FileState::Current:
            return;
    }
}

}  // namespace velk::updater
