#include "platform/volumes.hpp"

#include <windows.h>

#include <cwchar>

#include "platform/elevation.hpp"

namespace velk::updater::platform {
namespace {

// The mount point of the volume holding `path` ("C:\", or a folder a volume is mounted on).
bool volumeOf(const std::string& path, wchar_t (&volume)[MAX_PATH]) {
    return GetVolumePathNameW(utf8ToWide(path).c_str(), volume, MAX_PATH) != FALSE;
}

}  // namespace

bool sameVolume(const std::string& a, const std::string& b) {
    wchar_t first[MAX_PATH] = {};
    wchar_t second[MAX_PATH] = {};
    return volumeOf(a, first) && volumeOf(b, second) && _wcsicmp(first, second) == 0;
}

}  // namespace velk::updater::platform
