#include <chrono>
#include <filesystem>
#include <thread>

#include "apply/file_updater.hpp"
#include "apply/file_updater_impl.hpp"
#include "common/text.hpp"
#include "delivery/file_check.hpp"
#include "platform/file_replace.hpp"
#include "platform/private_files.hpp"

namespace velk::updater {
namespace {

namespace fs = std::filesystem;

// Another process may hold a file for a moment (a scanner reading what was just written, a
// program closing): an operation that finds it in use is tried again with growing waits
// until the window has passed, and then fails like any other.
class WhileInUse {
public:
    WhileInUse(std::chrono::milliseconds window, Logger& logger) : window_(window), logger_(logger) {}

    // `attempt` returns true when done and false when the file was in use; it throws on
    // anything else.
    template <typename Attempt>
    void run(const fs::path& path, Attempt attempt) const {
        const auto deadline = std::chrono::steady_clock::now() + window_;
        std::chrono::milliseconds wait{100};
        while (!attempt()) {
            if (std::chrono::steady_clock::now() + wait > deadline) {
                throw fs::filesystem_error("file in use by another process", path,
                                           std::make_error_code(std::errc::device_or_resource_busy));
            }
            logger_.warning("File in use, retrying in " + std::to_string(wait.count()) + " ms: " + path.string());
            std::this_thread::sleep_for(wait);
            wait = std::min(wait * 2, std::chrono::milliseconds(2000));
        }
    }

private:
    std::chrono::milliseconds window_;
    Logger& logger_;
};

// Puts the staged copy in place of the target in one step. The staged bytes reach the
// disk first, so a crash leaves the target either old or new, never partly written.
void replaceWithStaging(const fs::path& staging, const fs::path& target, const WhileInUse& inUse) {
    if (!platform::flushFile(staging.string())) {
        throw fs::filesystem_error("flush of staged file failed", staging, std::make_error_code(std::errc::io_error));
    }
    inUse.run(target, [&] {
        std::string error;
        const platform::ReplaceStatus status = platform::replaceFile(staging.string(), target.string(), error);
        if (status == platform::ReplaceStatus::Failed) {
            throw fs::filesystem_error("rename failed: " + error, staging, target,
                                       std::make_error_code(std::errc::io_error));
        }
        return status == platform::ReplaceStatus::Replaced;
    });
}

// Copies into a new file through the system's copy, which moves the bytes without passing
// them through this process; fails as fs::copy_file does when the target exists.
void copyToNewFile(const fs::path& source, const fs::path& target) {
    std::error_code error;
    if (!platform::copyFileFast(source.string(), target.string(), error)) {
        throw fs::filesystem_error("cannot copy file", source, target, error);
    }
}

// The backup of an installed copy that another process may be holding.
void backUp(const fs::path& source, const fs::path& backup, const WhileInUse& inUse) {
    inUse.run(source, [&] {
        std::error_code error;
        if (platform::copyFileFast(source.string(), backup.string(), error)) return true;
        if (platform::isInUse(error)) return false;
        throw fs::filesystem_error("cannot copy file", source, backup, error);
    });
}

// The verified download becomes the staging copy by a rename (the download folder is on the
// installation's volume), so each byte is written once; a target on another volume (a
// folder mounted inside the installation) gets a copy. Either way it then takes the access
// of the installation folder instead of the private folder's.
void stageDownload(const fs::path& download, const fs::path& staging, const fs::path& target) {
    std::error_code moved;
    fs::rename(download, staging, moved);
    if (moved) copyToNewFile(download, staging);
    std::string error;
    if (!platform::adoptFolderAccess(staging.string(), target.string(), error)) {
        throw fs::filesystem_error(error, staging, std::make_error_code(std::errc::permission_denied));
    }
}

}  // namespace

FileUpdateResult FileUpdater::installFile(const ManifestFile& file, const std::string& downloadedPath,
                                          FileUpdateResult result) {
    Impl& impl = *impl_;
    const InstallationLayout& layout = impl.config.layout;
    const std::string& installDirectory = layout.installDirectory();
    const auto start = std::chrono::steady_clock::now();
    const WhileInUse inUse(impl.config.inUseWindow, impl.logger);
    result.filePath = file.target_path;
    result.success = false;
    result.errorMessage.clear();
    try {
        const fs::path target = layout.targetFile(file.target_path);
        requireInside(installDirectory, target);
        fs::create_directories(target.parent_path());
        requireInside(installDirectory, target);

        if (impl.config.createBackups && file.backup && fs::exists(target)) {
            const fs::path backup = layout.backupFile(file.name, std::chrono::system_clock::now());
            fs::create_directories(backup.parent_path());
            requireInside(layout.backupDirectory(), backup);
            backUp(target, backup, inUse);
            impl.logger.debug("Created backup: " + backup.string());
        }

        if (impl.config.useStaging) {
            const fs::path staging = InstallationLayout::stagingFile(target);
            requireInside(installDirectory, staging);
            if (fs::exists(staging)) {
                impl.logger.debug("Removing leftover staging file: " + staging.string());
                fs::remove(staging);
            }
            stageDownload(downloadedPath, staging, target);
            // Point of no return: from here on the target holds the new file.
            replaceWithStaging(staging, target, inUse);
        } else {
            fs::copy_file(downloadedPath, target, fs::copy_options::overwrite_existing);
        }

        if (impl.config.deleteTempAfterInstall) fs::remove(downloadedPath);  // left only by a copy
        result.success = true;
        impl.logger.debug("Installed file: " + file.name + " to " + target.string());
    } catch (const std::exception& error) {
        result.errorMessage = std::string("Installation failed: ") + error.what();
        impl.logger.error("Installation failed for " + file.name + ": " + error.what());
    }
    result.installTimeMs = millisecondsSince(start);
    return result;
}

}  // namespace velk::updater
