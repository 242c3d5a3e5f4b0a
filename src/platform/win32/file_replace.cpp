#include "platform/file_replace.hpp"

#include <windows.h>

#include "platform/elevation.hpp"
#include "platform/win32/handles.hpp"

namespace velk::updater::platform {

bool flushFile(const std::string& path) {
    const win32::UniqueHandle file(CreateFileW(utf8ToWide(path).c_str(), GENERIC_WRITE,
                                               FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                                               FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) return false;
    return FlushFileBuffers(file.get()) != FALSE;
}

ReplaceStatus replaceFile(const std::string& source, const std::string& target, std::string& error) {
    if (MoveFileExW(utf8ToWide(source).c_str(), utf8ToWide(target).c_str(),
                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_COPY_ALLOWED)) {
        return ReplaceStatus::Replaced;
    }
    const DWORD code = GetLastError();
    error = formatSystemError(code);
    return isInUse(std::error_code(static_cast<int>(code), std::system_category())) ? ReplaceStatus::InUse
                                                                                     : ReplaceStatus::Failed;
}

// A running program or a scanner holding the file shows as a sharing or lock violation, or
// as access denied (a mapped executable).
bool isInUse(const std::error_code& error) {
    if (error.category() != std::system_category()) return false;
    const int code = error.value();
    return code == ERROR_SHARING_VIOLATION || code == ERROR_LOCK_VIOLATION || code == ERROR_ACCESS_DENIED;
}

// CopyFileExW lets the system copy in large blocks (or on the server, for a share) and
// removes a partly written target itself when the copy fails.
bool copyFileFast(const std::string& source, const std::string& target, std::error_code& error) {
    if (CopyFileExW(utf8ToWide(source).c_str(), utf8ToWide(target).c_str(), nullptr, nullptr, nullptr,
                    COPY_FILE_FAIL_IF_EXISTS)) {
        error.clear();
        return true;
    }
    error = std::error_code(static_cast<int>(GetLastError()), std::system_category());
    return false;
}

}  // namespace velk::updater::platform
