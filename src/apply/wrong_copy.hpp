#pragma once

#include <filesystem>
#include <string>

#include "delivery/file_check.hpp"
#include "logging/logger.hpp"
#include "release/manifest.hpp"

// What the checks of installed copies do with a copy that is not the manifest's.
namespace velk::updater {

// Reports what the check of an installed copy found wrong (a size mismatch, a failed hash
// or, with the caller's `hashMismatchLine`, a digest mismatch) and deletes the copy, so
// that its replacement is downloaded cleanly; a failing removal is logged, never thrown.
void discardWrongCopy(Logger& logger, const std::filesystem::path& path, const ManifestFile& file,
                      const FileCheck& check, const std::string& hashMismatchLine);

}  // namespace velk::updater
