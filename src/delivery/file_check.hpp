#pragma once

#include <cstdint>
#include <filesystem>
#include <string>

#include "release/manifest.hpp"

// The one check of a file on disk against its manifest entry, used for installed copies
// and downloads alike. It reads the disk and decides; callers log around it.
namespace velk::updater {

// How a computed digest is compared with the entry's text.
enum class DigestCase { Exact, IgnoreCase };

enum class FileState { Current, Missing, SizeMismatch, HashFailed, HashMismatch };

struct FileCheck {
    FileState state = FileState::Missing;
    std::uintmax_t actualSize = 0;
    std::string actualSha256;  // lower-case hexadecimal, once computed
    std::string error;         // the hashing error of HashFailed

    bool current() const { return state == FileState::Current; }
};

// Size first (when `compareSize`), then SHA-256. Throws the filesystem error when the
// file's size cannot be read; safe to call from several threads at once. A `knownSha256`
// (lower-case hexadecimal of the file's current content, taken while it was written)
// stands in for reading the file again.
FileCheck checkFile(const std::filesystem::path& path, const ManifestFile& expected, DigestCase digestCase,
                    bool compareSize = true, const std::string& knownSha256 = "");

// Throws a filesystem error unless `path`, with its links resolved, lies inside `folder`.
// Every file the updater writes or deletes is checked with it first, so neither a manifest
// nor a planted link can point a write or a deletion elsewhere.
void requireInside(const std::filesystem::path& folder, const std::filesystem::path& path);

// Digests as hexadecimal text, equal but for ASCII letter case.
bool sameDigestIgnoringCase(const std::string& a, const std::string& b);

}  // namespace velk::updater
