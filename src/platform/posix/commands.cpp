#include "platform/commands.hpp"

#include <spawn.h>
#include <sys/wait.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <filesystem>
#include <optional>
#include <vector>

#include "platform/posix/registry_file.hpp"
#include "platform/posix/system_root.hpp"
#include "platform/registry.hpp"

extern char** environ;

// The service and driver tools of Windows do not exist here. Their command lines are
// carried out against the emulated registry and a driver store under the system root,
// with the exit codes the Windows tools give; anything else goes to the shell.
namespace velk::updater::platform {
namespace {

namespace fs = std::filesystem;

constexpr int kServiceExists = 1073;       // ERROR_SERVICE_EXISTS
constexpr int kServiceDoesNotExist = 1060;  // ERROR_SERVICE_DOES_NOT_EXIST
constexpr int kFileNotFound = 2;
constexpr int kNoMoreItems = 259;  // package already in the store
constexpr int kInvalidParameter = 87;

const std::string kServicesKey = "SYSTEM\\CurrentControlSet\\Services\\";

std::string lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// Splits at blanks; double quotes group blanks into a word and are removed.
std::vector<std::string> splitCommandLine(const std::string& line) {
    std::vector<std::string> words;
    std::string word;
    bool quoted = false, inWord = false;
    for (const char c : line) {
        if (c == '"') {
            quoted = !quoted;
            inWord = true;
        } else if (!quoted && (c == ' ' || c == '\t')) {
            if (inWord) words.push_back(word);
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (inWord) words.push_back(word);
    return words;
}

// The value after an "option=" word of an sc command line ("binPath= value").
std::optional<std::string> scOption(const std::vector<std::string>& words, const std::string& name) {
    for (std::size_t i = 0; i + 1 < words.size(); ++i) {
        if (lower(words[i]) == lower(name) + "=") return words[i + 1];
    }
    return std::nullopt;
}

std::string dword(std::uint32_t value) {
    std::string bytes;
    for (int shift = 0; shift < 32; shift += 8) bytes += static_cast<char>((value >> shift) & 0xFF);
    return bytes;
}

std::string text(const std::string& value) { return value + '\0'; }

int createService(RegistryFile& registry, const std::string& name, std::uint32_t type,
                  const std::string& imagePath, const std::string& displayName, std::uint32_t start) {
    const std::string path = machineKeyPath(kServicesKey + name);
    if (registry.findKey(path) != nullptr) return kServiceExists;
    RegistryKeyData& key = registry.createKey(path);
    key.setValue("Type", kRegDword, dword(type));
    key.setValue("Start", kRegDword, dword(start));
    key.setValue("ErrorControl", kRegDword, dword(1));
    key.setValue("ImagePath", kRegExpandSz, text(imagePath));
    if (!displayName.empty()) key.setValue("DisplayName", kRegSz, text(displayName));
    key.setValue("ObjectName", kRegSz, text(type == 1 ? "" : "LocalSystem"));
    return registry.save() ? 0 : kInvalidParameter;
}

int startType(const std::string& word) {
    const std::string value = lower(word);
    if (value == "boot") return 0;
    if (value == "system") return 1;
    if (value == "auto") return 2;
    if (value == "disabled") return 4;
    return 3;  // demand
}

int runSc(const std::vector<std::string>& words) {
    auto registry = RegistryFile::load();
    if (!registry || words.size() < 3) return kInvalidParameter;
    const std::string verb = lower(words[1]);
    const std::string& name = words[2];
    if (verb == "create") {
        const auto binPath = scOption(words, "binPath");
        if (!binPath) return kInvalidParameter;
        return createService(*registry, name, 0x10, *binPath,
                             scOption(words, "DisplayName").value_or(""),
                             startType(scOption(words, "start").value_or("demand")));
    }
    if (verb == "description" && words.size() >= 4) {
        RegistryKeyData* key = registry->findKey(machineKeyPath(kServicesKey + name));
        if (key == nullptr) return kServiceDoesNotExist;
        key->setValue("Description", kRegSz, text(words[3]));
        return registry->save() ? 0 : kInvalidParameter;
    }
    return kInvalidParameter;
}

fs::path driverStore() { return fs::path(systemRoot()) / "DriverStore"; }

bool storeHolds(const std::string& infName) {
    std::error_code error;
    if (!fs::is_directory(driverStore(), error)) return false;
    for (const auto& entry : fs::directory_iterator(driverStore(), error)) {
        if (lower(entry.path().filename().string()) == lower(infName)) return true;
    }
    return false;
}

// pnputil /add-driver: the package goes into the store and registers its kernel driver.
int addDriver(const std::string& inf) {
    std::error_code error;
    if (!fs::is_regular_file(inf, error)) return kFileNotFound;
    const std::string infName = fs::path(inf).filename().string();
    if (storeHolds(infName)) return kNoMoreItems;
    auto registry = RegistryFile::load();
    if (!registry) return kInvalidParameter;
    fs::create_directories(driverStore(), error);
    if (!fs::copy_file(inf, driverStore() / infName, error)) return kInvalidParameter;
    const std::string driver = fs::path(inf).stem().string();
    const int created = createService(*registry, driver, 1,
                                      "\\SystemRoot\\System32\\drivers\\" + driver + ".sys", driver, 3);
    return created == kServiceExists ? 0 : created;
}

// pnputil /enum-drivers | findstr /i "word": 0 when a package in the store matches.
int findDriver(const std::string& word) {
    std::error_code error;
    if (!fs::is_directory(driverStore(), error)) return 1;
    for (const auto& entry : fs::directory_iterator(driverStore(), error)) {
        if (lower(entry.path().filename().string()).find(lower(word)) != std::string::npos) return 0;
    }
    return 1;
}

int runPnputil(const std::vector<std::string>& words) {
    if (words.size() >= 3 && lower(words[1]) == "/add-driver") return addDriver(words[2]);
    const bool enumerate = words.size() == 6 && lower(words[1]) == "/enum-drivers" && words[2] == "|" &&
                           lower(words[3]) == "findstr" && lower(words[4]) == "/i";
    if (enumerate) return findDriver(words[5]);
    return kInvalidParameter;
}

int runShell(const std::string& commandLine) {
    const char* argv[] = {"/bin/sh", "-c", commandLine.c_str(), nullptr};
    pid_t pid = -1;
    if (::posix_spawn(&pid, "/bin/sh", nullptr, nullptr, const_cast<char**>(argv), environ) != 0) {
        return -1;
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

int runCommand(const std::string& commandLine) {
    const auto words = splitCommandLine(commandLine);
    if (!words.empty()) {
        const std::string tool = lower(words[0]);
        if (tool == "sc" || tool == "sc.exe") return runSc(words);
        if (tool == "pnputil" || tool == "pnputil.exe") return runPnputil(words);
    }
    return runShell(commandLine);
}

}  // namespace velk::updater::platform
