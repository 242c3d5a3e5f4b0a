#pragma once

#include <exception>
#include <filesystem>
#include <functional>
#include <string>

// The one walk that removes leftovers: staging copies, temporary downloads, backups and
// old updater copies are all swept through it.
namespace velk::updater {

struct FileSweep {
    // Which regular files of the folder (by name) are leftovers.
    std::function<bool(const std::string& name)> matches;
    // Removes and reports one leftover; true when it counts as removed.
    std::function<bool(const std::filesystem::path& path, const std::string& name)> remove;
    // Reports an entry that could not be examined or removed; the walk goes on.
    std::function<void(const std::filesystem::path& path, const std::exception& error)> failed;
};

// Applies the sweep to the regular files directly in `directory`; returns how many were
// removed. Throws the filesystem error when the folder itself cannot be read.
int sweepFiles(const std::filesystem::path& directory, const FileSweep& sweep);

}  // namespace velk::updater
