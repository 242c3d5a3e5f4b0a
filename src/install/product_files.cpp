#include "install/product_files.hpp"

#include <algorithm>

namespace velk::updater::product {
namespace {

// Every file an installation or update may write, under both names the driver has had.
constexpr std::array<const char*, 10> kProductFiles = {
    "VELK_Service.exe", "VELK_Sys.sys",     "VELK_Sys_x64.sys", "VELK.dll",    "VELK_Launcher.exe",
    "VELK_Updater.exe", "Updater.exe",      "libcurl.dll",      "libsodium.dll", "zlib1.dll"};

constexpr std::array<const char*, 4> kUpdaterRuntimeFiles = {"Updater.exe", "libcurl.dll", "libsodium.dll",
                                                             "zlib1.dll"};

bool endsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

template <std::size_t N>
bool contains(const std::array<const char*, N>& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

// A product file's name followed by `suffix`.
bool isProductFileWith(const std::string& name, const std::string& suffix) {
    return endsWith(name, suffix) && contains(kProductFiles, name.substr(0, name.size() - suffix.size()));
}

}  // namespace

bool isUpdaterExecutable(const std::string& name) { return name == "VELK_Updater.exe" || name == "Updater.exe"; }

bool isUpdaterRuntimeFile(const std::string& name) { return contains(kUpdaterRuntimeFiles, name); }

bool isStagingLeftover(const std::string& name) {
    return isProductFileWith(name, ".staging") ||
           (name.size() >= 8 && endsWith(name, ".staging") &&
            (name.find("VELK") != std::string::npos || name.find("velk") != std::string::npos));
}

bool isProductDownload(const std::string& name) {
    // An archive is set aside as "<download>.zip" while its entry is taken out.
    return name.rfind("VELK", 0) == 0 && (endsWith(name, ".tmp") || endsWith(name, ".tmp.zip"));
}

bool isTempLeftover(const std::string& name) { return isProductFileWith(name, ".tmp") || isProductDownload(name); }

}  // namespace velk::updater::product
