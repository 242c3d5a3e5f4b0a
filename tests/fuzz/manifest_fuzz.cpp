// libFuzzer target: any text through the manifest reader and the structural rules.
#include <cstddef>
#include <cstdint>
#include <string>

#include "release/manifest.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto manifest = velk::updater::parseManifest(text);
    if (manifest) {
        const std::string problem = velk::updater::validateManifest(*manifest);
        if (problem.empty() != velk::updater::isManifestValid(*manifest)) __builtin_trap();
    }
    return 0;
}
