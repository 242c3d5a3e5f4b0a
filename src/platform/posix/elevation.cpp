#include "platform/elevation.hpp"

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "platform/process.hpp"

extern char** environ;

// Elevated means root. A relaunch goes through sudo: first "sudo -v", whose refusal is
// the declined prompt, then the program itself with its arguments, waited for.
namespace velk::updater::platform {
namespace {

constexpr std::uint32_t kErrorCancelled = 1223;

// Runs sudo with the given arguments; the exit status, or -errno when it could not start.
int runSudo(std::vector<std::string> args, bool wait) {
    args.insert(args.begin(), "sudo");
    std::vector<char*> argv;
    for (auto& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    pid_t pid = -1;
    const int rc = ::posix_spawnp(&pid, "sudo", nullptr, nullptr, argv.data(), environ);
    if (rc != 0) return -rc;
    if (!wait) return 0;
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return 0;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::vector<std::string> splitArguments(const std::string& text) {
    std::vector<std::string> words;
    std::string word;
    bool quoted = false;
    for (const char c : text) {
        if (c == '"') {
            quoted = !quoted;
        } else if (c == ' ' && !quoted) {
            if (!word.empty()) words.push_back(word);
            word.clear();
        } else {
            word += c;
        }
    }
    if (!word.empty()) words.push_back(word);
    return words;
}

ElevationResult launch(const std::string& executablePath, const std::vector<std::string>& arguments,
                       bool waitForExit) {
    ElevationResult result;
    const int validated = runSudo({"-v"}, true);
    if (validated != 0) {
        result.errorCode = validated < 0 ? static_cast<std::uint32_t>(-validated) : kErrorCancelled;
        result.message = validated < 0 ? "Failed to request elevation: " + formatSystemError(result.errorCode)
                                       : "User cancelled UAC elevation prompt";
        return result;
    }
    std::vector<std::string> command{"-n", "--", executablePath};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const int status = runSudo(command, waitForExit);
    if (status < 0) {
        result.errorCode = static_cast<std::uint32_t>(-status);
        result.message = "Failed to request elevation: " + formatSystemError(result.errorCode);
        return result;
    }
    result.success = true;
    result.message = "Elevation request successful";
    result.exitCode = waitForExit ? static_cast<std::uint32_t>(status) : 0;
    return result;
}

ElevationResult elevate(const std::string& executablePath, const std::vector<std::string>& arguments,
                        bool waitForExit) {
    if (!isProcessElevated()) return launch(executablePath, arguments, waitForExit);
    ElevationResult result;
    result.success = true;
    result.alreadyElevated = true;
    result.message = "Process is already elevated";
    return result;
}

}  // namespace

bool isProcessElevated() { return ::geteuid() == 0; }

ElevationResult requestElevation(const std::string& executablePath, const std::string& arguments,
                                 bool waitForExit) {
    return elevate(executablePath, splitArguments(arguments), waitForExit);
}

ElevationResult startElevated(const std::string& executablePath, const std::string& arguments,
                              bool waitForExit) {
    return launch(executablePath, splitArguments(arguments), waitForExit);
}

// The arguments go on as they came, without being joined into a text and split again.
ElevationResult relaunchElevated(int argc, char* argv[]) {
    const std::string path = executablePath();
    if (path.empty()) {
        ElevationResult result;
        result.message = "Failed to get current executable path";
        return result;
    }
    return elevate(path, std::vector<std::string>(argv + 1, argv + argc), true);
}

std::string formatSystemError(std::uint32_t code) {
    const std::string unknown = "Unknown error (code: " + std::to_string(code) + ")";
    const char* text = std::strerror(static_cast<int>(code));
    if (text == nullptr || std::strncmp(text, "Unknown error", 13) == 0) return unknown;
    return text;
}

std::wstring utf8ToWide(const std::string& text) {
    std::wstring wide;
    for (std::size_t i = 0; i < text.size();) {
        const auto lead = static_cast<unsigned char>(text[i]);
        const int extra = lead < 0x80 ? 0 : (lead >> 5) == 6 ? 1 : (lead >> 4) == 14 ? 2 : (lead >> 3) == 30 ? 3 : -1;
        if (extra < 0 || i + static_cast<std::size_t>(extra) >= text.size()) {
            wide += static_cast<wchar_t>(0xFFFD);
            ++i;
            continue;
        }
        std::uint32_t cp = extra == 0 ? lead : lead & (0x3F >> extra);
        for (int k = 1; k <= extra; ++k) cp = (cp << 6) | (static_cast<unsigned char>(text[i + k]) & 0x3F);
        wide += static_cast<wchar_t>(cp);
        i += static_cast<std::size_t>(extra) + 1;
    }
    return wide;
}

}  // namespace velk::updater::platform
