// The patch path of the downloader: a small patch against the installed copy instead of the
// whole file, checked twice (the patch by its digest, the result by the entry's).
#include <filesystem>

#include "common/text.hpp"
#include "crypto/crypto_utils.hpp"
#include "delivery/download.hpp"
#include "delivery/file_check.hpp"
#include "delivery/patch.hpp"
#include "delivery/url_candidates.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

std::string hexOf(const std::optional<platform::Sha256Digest>& digest) {
    if (!digest) return "";
    return CryptoUtils::toHex(std::vector<std::uint8_t>(digest->begin(), digest->end()));
}

// The patch as an entry of its own: its URL names it below the bases, its size bounds it.
ManifestFile patchEntry(const ManifestPatch& patch) {
    ManifestFile entry;
    entry.name = fileNamePart(patch.url);
    entry.url = patch.url;
    entry.size = patch.size;
    entry.sha256 = patch.sha256;
    return entry;
}

Delivery failedWith(Delivery result, std::string error) {
    std::error_code ignored;
    fs::remove(result.path, ignored);
    result.success = false;
    result.errorMessage = std::move(error);
    return result;
}

}  // namespace

Delivery Downloader::downloadPatched(const ManifestFile& file, const ManifestPatch& patch, std::span<const char> base) {
    const auto start = std::chrono::steady_clock::now();
    keptDigest_.reset();
    Delivery result;
    result.path = layout_.downloadFile(file.name);
    Delivery fetched;
    fetched.path = layout_.downloadFile(file.name + kPatchSuffix);
    std::optional<platform::Sha256Digest> patchDigest;
    const std::string url = fetchFirstAnswer(patchEntry(patch), start, fetched, patchDigest, false);
    if (url.empty()) return failedWith(result, "Patch not found");
    const bool genuine = sameDigestIgnoringCase(hexOf(patchDigest), patch.sha256);
    std::error_code ignored;
    fs::remove(result.path, ignored);
    const PatchOutcome outcome = genuine ? applyPatch(base, fetched.path, result.path, file.size) : PatchOutcome{};
    fs::remove(fetched.path, ignored);
    if (!genuine) return failedWith(result, "Patch digest mismatch");
    if (!outcome.applied) return failedWith(result, outcome.error);
    if (!sameDigestIgnoringCase(hexOf(outcome.digest), file.sha256) || fs::file_size(result.path, ignored) != file.size) {
        return failedWith(result, "Patched file does not match the release");
    }
    keepDigest(result.path, outcome.digest);
    result.success = true;
    result.bytesDownloaded = fetched.bytesDownloaded;
    result.downloadTimeMs = millisecondsSince(start);
    logger_.info("Patched " + file.name + " from " + url + ": " + std::to_string(fetched.bytesDownloaded) +
                 " bytes instead of " + std::to_string(file.size));
    return result;
}

}  // namespace velk::updater
