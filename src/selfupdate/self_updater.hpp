#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "logging/logger.hpp"
#include "manifest/manifest.hpp"

namespace velk::updater {

struct SelfUpdaterConfig {
    std::string installDirectory;
    std::string tempDirectory;
    std::string currentExecutable;
    bool restartAfterUpdate = false;
    std::uint32_t replacementDelaySeconds = 5;
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
