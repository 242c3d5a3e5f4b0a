#include "installation/product_files.hpp"

#include <algorithm>

#include "installation/layout.hpp"

namespace velk::updater::product {
namespace {

// Every file an installation or update may write, under both names the driver has had.
constexpr std::array<const char*, 10> kProductFiles = {
    "VELK_Service.exe", "VELK_Sys.sys",     "VELK_Sys_x64.sys", "VELK.dll",    "VELK_Launcher.exe",
    "VELK_Updater.exe", "Updater.exe",      "libcurl.dll",      "libsodium.dll", "zlib1.dll"};

constexpr std::array<const char*, 4> kUpdaterRuntimeFiles = {"Updater.exe", "libcurl.dll", "libsodium.dll",
                                                             "zlib1.dll"};

template <std::size_t N>
bool contains(const std::array<const char*, N>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// A product file's name followed by `suffix`.
bool isProductFileWith(const std::string& name, const std::string& suffix) {
    return name.ends_with(suffix) && contains(kProductFiles, name.substr(0, name.size() - suffix.size()));
}

}  // namespace

bool isUpdaterExecutable(const std::string& name) { return name == "VELK_Updater.exe" || name == "Updater.exe"; }

bool isUpdaterRuntimeFile(const std::string& name) { return contains(kUpdaterRuntimeFiles, name); }

bool isStagingLeftover(const std::string& name) {
    return isProductFileWith(name, kStagingSuffix) ||
           (name.size() >= 8 && name.ends_with(kStagingSuffix) &&
            (name.find("VELK") != std::string::npos || name.find("velk") != std::string::npos));
}

bool isProductDownload(const std::string& name) {
    // An archive is set aside as "<download>.zip" while its entry is taken out.
    const std::string archive = std::string(kDownloadSuffix) + kArchiveSuffix;
    return name.starts_with("VELK") && (name.ends_with(kDownloadSuffix) || name.ends_with(archive));
}

bool isTempLeftover(const std::string& name) {
    return isProductFileWith(name, kDownloadSuffix) || isProductDownload(name);
}

}  // namespace velk::updater::product
