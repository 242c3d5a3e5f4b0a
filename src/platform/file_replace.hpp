#pragma once

#include <string>

namespace velk::updater::platform {

// Flushes a file's content to the disk, so that a rename that follows cannot expose a
// file whose data never arrived. False when the file cannot be opened or flushed.
bool flushFile(const std::string& path);

// Moves `source` over `target` in one step, replacing it (a copy when the two are on
// different volumes). False with the system's text in `error` on failure.
bool replaceFile(const std::string& source, const std::string& target, std::string& error);

}  // namespace velk::updater::platform
