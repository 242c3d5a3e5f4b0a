#include "platform/known_folders.hpp"

// <windows.h> comes first: the shell headers build on its types.
#include <windows.h>

#include <shlobj.h>

namespace velk::updater::platform {

std::optional<std::string> programFilesFolder() {
    char path[MAX_PATH] = {};
    if (FAILED(SHGetFolderPathA(nullptr, CSIDL_PROGRAM_FILES, nullptr, SHGFP_TYPE_CURRENT, path))) {
        return std::nullopt;
    }
    return std::string(path);
}

}  // namespace velk::updater::platform
