#pragma once

#include <windows.h>

#include <cstdio>
#include <string>

#include "platform/process.hpp"

namespace velk::test {

// Wine exports wine_get_version from its ntdll; Windows does not.
inline bool runningUnderWine() {
    const HMODULE ntdll = GetModuleHandleA("ntdll.dll");
    return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

struct CommandOutput {
    int exitCode = -1;
    std::string text;  // standard output
};

// Runs a command line through the command processor and collects its standard output.
inline CommandOutput captureCommand(const std::string& commandLine) {
    CommandOutput output;
    // The outer quotes are removed by cmd /c, so quoted paths inside survive.
    FILE* pipe = _popen(("\"" + commandLine + "\"").c_str(), "r");
    if (pipe == nullptr) return output;
    char buffer[4096];
    for (std::size_t n; (n = std::fread(buffer, 1, sizeof(buffer), pipe)) > 0;) output.text.append(buffer, n);
    output.exitCode = _pclose(pipe);
    return output;
}

// The folder holding the cross-built programs: this test program lives two levels below it.
inline std::string buildFolder() {
    std::string path = updater::platform::executablePath();
    for (int level = 0; level < 3; ++level) path = path.substr(0, path.find_last_of('\\'));
    return path;
}

// Creates HKEY_LOCAL_MACHINE\subKey (the product never creates keys; tests set them up).
inline bool createKey(const std::string& subKey) {
    HKEY key = nullptr;
    if (RegCreateKeyExA(HKEY_LOCAL_MACHINE, subKey.c_str(), 0, nullptr, 0, KEY_WRITE, nullptr, &key, nullptr) !=
        ERROR_SUCCESS) {
        return false;
    }
    RegCloseKey(key);
    return true;
}

}  // namespace velk::test
