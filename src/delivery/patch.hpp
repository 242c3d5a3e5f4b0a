#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/sha256.hpp"

// Applying a zstd patch that was made with the installed copy as its prefix (zstd's
// "--patch-from"), bounded in memory and in output.
namespace velk::updater {

struct PatchOutcome {
    bool applied = false;
    std::string error;
    std::optional<platform::Sha256Digest> digest;  // of what was written
};

// Decodes the one frame in `patchPath` with `base` (the installed copy's bytes) as its prefix
// into a new file at `outputPath`. The frame must state the size it makes, no larger than
// `fileSize`, and make exactly that: memory holds the base and that size, nothing more. A
// frame that is cut, damaged or followed by anything fails, as do a base and file too large
// for a patch together. The output is left for the caller to keep or remove.
PatchOutcome applyPatch(std::span<const char> base, const std::string& patchPath, const std::string& outputPath,
                        std::uint64_t fileSize);

}  // namespace velk::updater
