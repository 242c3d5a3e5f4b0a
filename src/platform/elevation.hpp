#pragma once

#include <cstdint>
#include <string>

namespace velk::updater::platform {

// The outcome of asking for administrator rights.
struct ElevationResult {
    bool success = false;          // the elevated start succeeded, or no start was needed
    bool alreadyElevated = false;  // this process is elevated; nothing was started
    std::string message;
    std::uint32_t errorCode = 0;    // system error of a failed request
    std::uint32_t exitCode = 0;     // exit code of the elevated copy, once waited for
};

bool isProcessElevated();

// Starts `executablePath` elevated with the argument text; waits for it when asked. A copy
// not waited for runs on by itself: nothing of it is handed back.
ElevationResult requestElevation(const std::string& executablePath, const std::string& arguments,
                                 bool waitForExit);

// Starts `executablePath` through the system's elevation request without first asking
// whether this process is already elevated; waits for it when asked.
ElevationResult startElevated(const std::string& executablePath, const std::string& arguments,
                              bool waitForExit);

// Starts this program again, elevated, with the same arguments, and waits for it.
ElevationResult relaunchElevated(int argc, char* argv[]);

// The system's text for an error code, or "Unknown error (code: N)".
std::string formatSystemError(std::uint32_t code);

// UTF-8 text as a wide string.
std::wstring utf8ToWide(const std::string& text);

// The argument text of a relaunch: blank-separated, arguments holding a blank quoted,
// nothing else escaped, empty arguments contributing nothing.
std::string buildArgumentText(int argc, char* argv[]);

}  // namespace velk::updater::platform
