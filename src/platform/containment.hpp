#pragma once

#include <filesystem>

namespace velk::updater::platform {

// Whether `path` lies strictly inside `folder` once every link in either is resolved (the
// parts that do not exist yet are taken as written). Names compare as the file system
// compares them: exactly here, in any letter case on Windows. A path that cannot be
// resolved is not inside.
bool isInsideFolder(const std::filesystem::path& folder, const std::filesystem::path& path);

}  // namespace velk::updater::platform
