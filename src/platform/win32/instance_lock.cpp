#include "platform/instance_lock.hpp"

// <windows.h> comes first: the shell headers build on its types.
#include <windows.h>

#include <shlobj.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

namespace velk::updater::platform {
namespace {

namespace fs = std::filesystem;

// Absolute, no trailing separator, lower case: Windows paths ignore ASCII case.
std::string normalise(const std::string& directory) {
    std::error_code error;
    fs::path path = fs::weakly_canonical(fs::absolute(directory, error), error);
    if (error) path = fs::absolute(directory, error).lexically_normal();
    std::string text = path.string();
    while (text.size() > 3 && (text.back() == '\\' || text.back() == '/')) text.pop_back();
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// The machine-wide application data folder (ProgramData), shared by every account.
std::string lockDirectory() {
    char path[MAX_PATH] = {};
    if (FAILED(SHGetFolderPathA(nullptr, CSIDL_COMMON_APPDATA, nullptr, SHGFP_TYPE_CURRENT, path))) return {};
    const std::string directory = std::string(path) + "\\VELK_Updater";
    CreateDirectoryA(directory.c_str(), nullptr);
    return directory;
}

}  // namespace

// A file opened without sharing: a second open fails with a sharing violation, also in
// the same process, and the system closes the handle when the process ends.
InstanceLock::InstanceLock(const std::string& installDirectory) {
    const std::string directory = lockDirectory();
    if (directory.empty()) return;
    const std::string path = directory + "\\" + instanceLockFileName(normalise(installDirectory));
    HANDLE file = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_ALWAYS,
                              FILE_ATTRIBUTE_NORMAL, nullptr);
    if (file == INVALID_HANDLE_VALUE) {
        const DWORD error = GetLastError();
        status_ = error == ERROR_SHARING_VIOLATION || error == ERROR_LOCK_VIOLATION ? LockStatus::Busy
                                                                                   : LockStatus::Failed;
        return;
    }
    handle_ = reinterpret_cast<std::intptr_t>(file);
    status_ = LockStatus::Acquired;
}

InstanceLock::~InstanceLock() {
    if (status_ == LockStatus::Acquired) CloseHandle(reinterpret_cast<HANDLE>(handle_));
}

}  // namespace velk::updater::platform
