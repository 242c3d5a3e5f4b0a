#pragma once

#include <memory>
#include <string>

#include "logging/logger.hpp"
#include "release/manifest.hpp"

namespace velk::updater {

struct SelfUpdaterConfig {
    std::string installDirectory;
    std::string currentExecutable;
};

// Handles the updaters' own files, which cannot be replaced while an updater runs:
// recognises them, checks the running executable and removes old updater backups.
class SelfUpdater {
public:
    SelfUpdater(const SelfUpdaterConfig& config, Logger& logger);
    ~SelfUpdater();
    SelfUpdater(const SelfUpdater&) = delete;
    SelfUpdater& operator=(const SelfUpdater&) = delete;

    // True for the windowed updater's executable and the libraries it loads.
    bool isUpdaterFile(const ManifestFile& file) const;
    // Checks that the running executable exists and removes its ".old" copy.
    bool verifySelfUpdate();
    // Removes ".old" and ".bak" updater copies at the top of the installation directory.
    void cleanupOldBackups();

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

}  // namespace velk::updater
