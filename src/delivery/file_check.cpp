#include "delivery/file_check.hpp"

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

}  // namespace velk::updater
