// libFuzzer target: any text through the manifest reader and its rules. An accepted manifest's
// patch lists are short and well-formed, and its signed text reads back to exactly its patches.
#include <algorithm>
#include <utility>
#include <vector>

#include "fuzz_support.hpp"
#include "release/manifest.hpp"
#include "release/signed_text.hpp"

namespace {

using namespace velk::updater;
using Fields = std::vector<std::pair<std::string, std::string>>;

// "name length value\n" after the first line; false when the text does not read that way.
bool readFields(const std::string& text, Fields& fields) {
    std::size_t at = text.find('\n');
    if (at == std::string::npos) return false;
    for (++at; at < text.size();) {
        const std::size_t nameEnd = text.find(' ', at);
        const std::size_t lengthEnd = nameEnd == std::string::npos ? nameEnd : text.find(' ', nameEnd + 1);
        if (lengthEnd == std::string::npos) return false;
        const std::size_t length = std::stoull(text.substr(nameEnd + 1, lengthEnd - nameEnd - 1));
        if (lengthEnd + 1 + length >= text.size() || text[lengthEnd + 1 + length] != '\n') return false;
        fields.emplace_back(text.substr(at, nameEnd - at), text.substr(lengthEnd + 1, length));
        at = lengthEnd + 2 + length;
    }
    return true;
}

// The patch fields a valid manifest's signed text ends with; traps on patches the rules refuse.
Fields checkedPatchFields(const Manifest& manifest) {
    Fields fields;
    for (std::size_t index = 0; index < manifest.files.size(); ++index) {
        const auto& patches = manifest.files[index].patches;
        if (patches.size() > kMaxPatchesPerFile) __builtin_trap();
        if (!patches.empty()) fields.emplace_back("patches_of", std::to_string(index));
        for (const auto& patch : patches) {
            if (patch.size == 0 || patch.from_sha256.size() != 64 || patch.sha256.size() != 64) __builtin_trap();
            fields.emplace_back("patch_from", patch.from_sha256);
            fields.emplace_back("patch_sha256", patch.sha256);
            fields.emplace_back("patch_size", std::to_string(patch.size));
        }
    }
    return fields;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto manifest = parseManifest(velk::fuzz::text(data, size));
    if (!manifest) return 0;
    const bool valid = validateManifest(*manifest).empty();
    if (valid != isManifestValid(*manifest)) __builtin_trap();
    Fields fields;
    if (!readFields(signedManifestText(*manifest), fields)) __builtin_trap();
    if (!valid) return 0;
    const Fields expected = checkedPatchFields(*manifest);
    if (fields.size() < expected.size() || !std::equal(expected.rbegin(), expected.rend(), fields.rbegin())) {
        __builtin_trap();
    }
    return 0;
}
