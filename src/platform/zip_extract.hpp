#pragma once

#include <string>

namespace velk::updater::platform {

// Unpacks every entry of a zip archive under `destination`, with its folders, replacing
// files that exist. False when the archive cannot be read or holds an entry that would
// land outside `destination` (absolute paths, "..", links).
bool extractZip(const std::string& zipPath, const std::string& destination);

}  // namespace velk::updater::platform
