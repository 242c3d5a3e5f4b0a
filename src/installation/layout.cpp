#include "installation/layout.hpp"

#include <ctime>
#include <iomanip>
#include <sstream>

#include "platform/local_time.hpp"
#include "platform/paths.hpp"

namespace velk::updater {

namespace fs = std::filesystem;

InstallationLayout::InstallationLayout(std::string installDirectory)
    : installDirectory_(std::move(installDirectory)),
      backupDirectory_(installDirectory_ + "/backup"),
      downloadDirectory_(platform::joinPath(installDirectory_, ".velk_downloads")) {}

std::string InstallationLayout::logDirectory() const { return platform::joinPath(installDirectory_, "logs"); }

std::string InstallationLayout::logFile() const { return platform::joinPath(logDirectory(), "updater.log"); }

std::string InstallationLayout::writeTestFile() const {
    return (fs::path(installDirectory_) / "velk_updater_write_test.tmp").string();
}

std::string InstallationLayout::productFile(const std::string& name) const {
    return platform::joinPath(installDirectory_, name);
}

fs::path InstallationLayout::targetFile(const std::string& targetPath) const {
    return fs::path(installDirectory_) / targetPath;
}

std::string InstallationLayout::downloadFile(const std::string& name) const {
    return (fs::path(downloadDirectory_) / (name + kDownloadSuffix)).string();
}

std::string InstallationLayout::archiveFile(const std::string& downloadFile) { return downloadFile + kArchiveSuffix; }

fs::path InstallationLayout::stagingFile(const fs::path& target) { return target.string() + kStagingSuffix; }

std::string InstallationLayout::backupFile(const std::string& name, std::chrono::system_clock::time_point when) const {
    const std::tm local = platform::localTime(std::chrono::system_clock::to_time_t(when));
    std::ostringstream stamp;
    stamp << std::put_time(&local, "%Y%m%d_%H%M%S");
    return (fs::path(backupDirectory_) / (name + "_" + stamp.str() + ".bak")).string();
}

std::string InstallationLayout::selfUpdateFile(const std::string& name) const {
    return platform::joinPath(installDirectory_, name + kSelfUpdateSuffix);
}

std::string InstallationLayout::partialFile(const std::string& file) { return file + kPartialSuffix; }

std::string InstallationLayout::resumeRecord(const std::string& partialFile) { return partialFile + kResumeSuffix; }

}  // namespace velk::updater
