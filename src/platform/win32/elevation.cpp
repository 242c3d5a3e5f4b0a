#include "platform/elevation.hpp"

// <windows.h> comes first: the shell headers build on its types.
#include <windows.h>

#include <shellapi.h>

#include "platform/win32/handles.hpp"

namespace velk::updater::platform {
namespace {

constexpr DWORD kErrorCancelled = 1223;

}  // namespace

bool isProcessElevated() {
    win32::UniqueHandle token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put())) return false;
    TOKEN_ELEVATION elevation{};
    DWORD size = sizeof(elevation);
    const BOOL queried = GetTokenInformation(token.get(), TokenElevation, &elevation, sizeof(elevation), &size);
    return queried && elevation.TokenIsElevated == 1;
}

ElevationResult requestElevation(const std::string& executablePath, const std::string& arguments,
                                 bool waitForExit) {
    if (!isProcessElevated()) return startElevated(executablePath, arguments, waitForExit);
    ElevationResult result;
    result.success = true;
    result.alreadyElevated = true;
    result.message = "Process is already elevated";
    return result;
}

ElevationResult startElevated(const std::string& executablePath, const std::string& arguments,
                              bool waitForExit) {
    ElevationResult result;
    const std::wstring file = utf8ToWide(executablePath);
    const std::wstring parameters = utf8ToWide(arguments);

    SHELLEXECUTEINFOW info{};
    info.cbSize = sizeof(info);
    info.fMask = SEE_MASK_NOCLOSEPROCESS;
    info.hwnd = nullptr;
    info.lpVerb = L"runas";
    info.lpFile = file.c_str();
    info.lpParameters = parameters.c_str();
    info.lpDirectory = nullptr;
    info.nShow = SW_SHOWNORMAL;

    if (!ShellExecuteExW(&info)) {
        result.errorCode = GetLastError();
        result.message = result.errorCode == kErrorCancelled
                             ? "User cancelled UAC elevation prompt"
                             : "Failed to request elevation: " + formatSystemError(result.errorCode);
        return result;
    }
    // Closed on every path: a copy not waited for runs on by itself.
    const win32::UniqueHandle process(info.hProcess);
    result.success = true;
    result.message = "Elevation request successful";
    if (waitForExit && process) {
        if (WaitForSingleObject(process.get(), INFINITE) == WAIT_OBJECT_0) {
            DWORD exitCode = 0;
            if (GetExitCodeProcess(process.get(), &exitCode)) result.exitCode = exitCode;
        }
    }
    return result;
}

ElevationResult relaunchElevated(int argc, char* argv[]) {
    char path[MAX_PATH] = {};
    if (GetModuleFileNameA(nullptr, path, MAX_PATH) == 0) {
        ElevationResult result;
        result.message = "Failed to get current executable path";
        return result;
    }
    return requestElevation(path, buildArgumentText(argc, argv), true);
}

std::string formatSystemError(std::uint32_t code) {
    win32::LocalMemory<char> buffer;
    const DWORD length = FormatMessageA(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
        nullptr, code, MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT), reinterpret_cast<LPSTR>(buffer.put()), 0,
        nullptr);
    if (length == 0) {
        return "Unknown error (code: " + std::to_string(code) + ")";
    }
    std::string text(buffer.get(), length);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return text;
}

std::wstring utf8ToWide(const std::string& text) {
    if (text.empty()) return {};
    const int length = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    std::wstring wide(static_cast<std::size_t>(length), L'\0');
    MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), wide.data(), length);
    return wide;
}

}  // namespace velk::updater::platform
