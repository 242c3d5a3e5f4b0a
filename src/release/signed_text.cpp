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
    return text;
}

}  // namespace velk::updater
