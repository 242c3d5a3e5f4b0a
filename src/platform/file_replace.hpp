#pragma once

#include <string>
#include <system_error>

namespace velk::updater::platform {

// Flushes a file's content to the disk, so that a rename that follows cannot expose a
// file whose data never arrived. False when the file cannot be opened or flushed.
bool flushFile(const std::string& path);

enum class ReplaceStatus { Replaced, InUse, Failed };

// Moves `source` over `target` in one step, replacing it (a copy when the two are on
// different volumes). InUse when another process holds the target (Windows: a sharing or
// lock violation, or access denied while it is open; Linux: EBUSY, ETXTBSY); the system's
// text in `error` on any failure.
ReplaceStatus replaceFile(const std::string& source, const std::string& target, std::string& error);

// Whether a failed copy's error means that another process holds the file.
bool isInUse(const std::error_code& error);

// Copies `source` to a new file `target` through the system's own copy, which moves the
// bytes inside the kernel (or shares them on file systems that can) instead of through a
// buffer of ours. The copy takes the source's permissions; it fails when `target` exists
// already. False with the system's error in `error` on failure; a partly written target
// is removed.
bool copyFileFast(const std::string& source, const std::string& target, std::error_code& error);

}  // namespace velk::updater::platform
