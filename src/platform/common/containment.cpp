#include "platform/containment.hpp"

#include "platform/paths.hpp"

namespace velk::updater::platform {

bool isInsideFolder(const std::filesystem::path& folder, const std::filesystem::path& path) {
    std::error_code error;
    const std::filesystem::path base = std::filesystem::weakly_canonical(std::filesystem::absolute(folder), error);
    if (error) return false;
    const std::filesystem::path resolved = std::filesystem::weakly_canonical(std::filesystem::absolute(path), error);
    if (error) return false;

    auto part = resolved.begin();
    for (const auto& name : base) {
        // A trailing separator of the folder shows as one empty name.
        if (name.empty()) break;
        if (part == resolved.end() || !sameFileName(name.string(), part->string())) return false;
        ++part;
    }
    // Something must be left below the folder, and "." or ".." cannot survive resolution.
    for (; part != resolved.end(); ++part) {
        if (!part->empty()) return true;
    }
    return false;
}

}  // namespace velk::updater::platform
