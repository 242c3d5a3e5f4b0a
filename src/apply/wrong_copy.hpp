#pragma once

#include <filesystem>
#include <string>

#include "delivery/file_check.hpp"
#include "logging/logger.hpp"
#include "release/manifest.hpp"

// What the checks of installed copies say of a copy that is not the manifest's.
namespace velk::updater {

// Reports what the check of an installed copy found wrong (a size mismatch, a failed hash
// or, with the caller's `hashMismatchLine`, a digest mismatch) and that the copy will be
// replaced. The copy itself stays: an outdated file still works, and only the verified new
// file takes its place, in one rename, so a failed update leaves it as it was.
void reportWrongCopy(Logger& logger, const std::filesystem::path& path, const ManifestFile& file,
                     const FileCheck& check, const std::string& hashMismatchLine);

}  // namespace velk::updater
