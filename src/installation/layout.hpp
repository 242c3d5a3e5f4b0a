#pragma once

#include <chrono>
#include <filesystem>
#include <string>

// Every folder and file name of one installation, formed in one place. The run builds one
// layout from the installation folder and hands it down; nobody else appends to these
// folders or invents a suffix.
namespace velk::updater {

// The suffixes of the updater's own copies; the leftover sweeps recognise them by these.
inline constexpr const char* kDownloadSuffix = ".tmp";
inline constexpr const char* kArchiveSuffix = ".zip";
inline constexpr const char* kStagingSuffix = ".staging";
inline constexpr const char* kSelfUpdateSuffix = "_temp";
inline constexpr const char* kPartialSuffix = ".partial";
inline constexpr const char* kResumeSuffix = ".resume";
inline constexpr const char* kPatchSuffix = ".patch";

class InstallationLayout {
public:
    InstallationLayout() = default;
    explicit InstallationLayout(std::string installDirectory);

    const std::string& installDirectory() const { return installDirectory_; }
    // "<installation>/backup", with a forward slash, where backups have always been kept.
    const std::string& backupDirectory() const { return backupDirectory_; }
    // The updater's private folder inside the installation, where downloads wait for their
    // verification: on the installation's volume, so that a verified file moves into place
    // by a rename, and closed to everyone but the administrator.
    const std::string& downloadDirectory() const { return downloadDirectory_; }
    std::string logDirectory() const;
    std::string logFile() const;
    // The file that proves the installation folder can be written to.
    std::string writeTestFile() const;

    // A file directly in the installation folder: the service executable, the driver files.
    std::string productFile(const std::string& name) const;
    // Where a manifest entry's target path puts its file.
    std::filesystem::path targetFile(const std::string& targetPath) const;
    // A download of the entry `name` before it is verified, and the archive it arrives in.
    std::string downloadFile(const std::string& name) const;
    static std::string archiveFile(const std::string& downloadFile);
    // The staging copy beside an installed file, renamed over it once complete.
    static std::filesystem::path stagingFile(const std::filesystem::path& target);
    // A backup of the entry `name`, stamped with the local time `when` in whole seconds.
    std::string backupFile(const std::string& name, std::chrono::system_clock::time_point when) const;
    // An updater runtime file fetched beside its target for the windowed updater to swap in,
    // and the partial file it streams into first.
    std::string selfUpdateFile(const std::string& name) const;
    static std::string partialFile(const std::string& file);
    // What identifies a download's partial, so that a later attempt can continue it.
    static std::string resumeRecord(const std::string& partialFile);

private:
    std::string installDirectory_;
    std::string backupDirectory_;
    std::string downloadDirectory_;
};

}  // namespace velk::updater
