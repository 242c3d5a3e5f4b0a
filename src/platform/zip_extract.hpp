#pragma once

#include <cstdint>
#include <string>

namespace velk::updater::platform {

enum class ZipEntryStatus {
    Extracted,
    NotFound,    // no regular file of that name in the archive
    TooLarge,    // the entry holds more than the limit; nothing is left at the output
    Unreadable,  // not a zip, damaged, or an entry that would land outside a folder
};

// Writes the first regular file of the archive whose own name (in any folder of it) is
// `entryName` to `outputPath`, replacing it, and nothing else. With `maxBytes` above 0
// the entry may hold at most that many bytes: a larger one (a zip bomb) is cut off and
// removed. An archive with any entry that is not a plain file or folder with a relative
// path below the archive's root is refused whole.
ZipEntryStatus extractZipEntry(const std::string& zipPath, const std::string& entryName,
                               const std::string& outputPath, std::uint64_t maxBytes);

}  // namespace velk::updater::platform
