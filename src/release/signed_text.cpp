#include "release/signed_text.hpp"

namespace velk::updater {

std::string signedManifestText(const Manifest& manifest) {
    std::string text = manifest.version + manifest.build_number + manifest.git_commit;
    for (const auto& file : manifest.files) text += file.name + file.sha256 + std::to_string(file.size);
    return text;
}

}  // namespace velk::updater
