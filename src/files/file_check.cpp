#include "files/file_check.hpp"

#include <algorithm>
#include <cctype>

#include "crypto/crypto_utils.hpp"
#include "platform/containment.hpp"

namespace velk::updater {

namespace fs = std::filesystem;

FileCheck checkFile(const fs::path& path, const ManifestFile& expected, DigestCase digestCase, bool compareSize,
                    const std::string& knownSha256) {
    FileCheck check;
    if (!fs::exists(path)) return check;
    check.actualSize = fs::file_size(path);
    if (compareSize && check.actualSize != expected.size) {
        check.state = FileState::SizeMismatch;
        return check;
    }
    if (knownSha256.empty()) {
        const CryptoResult digest = CryptoUtils::sha256File(path.string());
        if (!digest.success) {
            check.state = FileState::HashFailed;
            check.error = digest.error;
            return check;
        }
        check.actualSha256 = CryptoUtils::toHex(digest.data);
    } else {
        check.actualSha256 = knownSha256;
    }
    const bool same = digestCase == DigestCase::Exact ? check.actualSha256 == expected.sha256
                                                      : sameDigestIgnoringCase(check.actualSha256, expected.sha256);
    check.state = same ? FileState::Current : FileState::HashMismatch;
    return check;
}

void requireInside(const fs::path& folder, const fs::path& path) {
    if (platform::isInsideFolder(folder, path)) return;
    throw fs::filesystem_error("path lies outside " + folder.string(), path,
                               std::make_error_code(std::errc::permission_denied));
}

bool sameDigestIgnoringCase(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](unsigned char x, unsigned char y) {
               return std::tolower(x) == std::tolower(y);
           });
}

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
