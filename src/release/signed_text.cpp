#include "release/signed_text.hpp"

namespace velk::updater {
namespace {

void addField(std::string& text, const char* name, const std::string& value) {
    text += name;
    text += ' ' + std::to_string(value.size()) + ' ' + value + '\n';
}

}  // namespace

std::string signedManifestText(const Manifest& manifest) {
    std::string text = "VELK signed manifest 2\n";
    addField(text, "version", manifest.version);
    addField(text, "build_number", manifest.build_number);
    addField(text, "git_commit", manifest.git_commit);
    addField(text, "channel", manifest.channel);
    addField(text, "expires", manifest.expires);
    addField(text, "rollout_percentage", std::to_string(manifest.rollout_percentage));
    for (const auto& file : manifest.files) {
        addField(text, "name", file.name);
        addField(text, "sha256", file.sha256);
        addField(text, "size", std::to_string(file.size));
    }
    // After the files, so that a release without patches signs the same text as before.
    for (std::size_t index = 0; index < manifest.files.size(); ++index) {
        const ManifestFile& file = manifest.files[index];
        if (file.patches.empty()) continue;
        addField(text, "patches_of", std::to_string(index));  // the file's place in the list
        for (const auto& patch : file.patches) {
            addField(text, "patch_from", patch.from_sha256);
            addField(text, "patch_sha256", patch.sha256);
            addField(text, "patch_size", std::to_string(patch.size));
        }
    }
    return text;
}

}  // namespace velk::updater
