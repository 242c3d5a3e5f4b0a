#include "app/options.hpp"

#include <iostream>
#include <string_view>

namespace velk::updater {
namespace {

constexpr const char* kUsage =
    "VELK Update Client - Version 1.0.0\n"
    "Usage: VELK_Updater [options]\n\n"
    "Options:\n"
    "  -c, --check-only          Check for updates but don't install\n"
    "  -f, --force               Force update even if same version\n"
    "  --disable-downgrades      Disable downgrading to older versions (default: enabled)\n"
    "  -v, --verbose             Enable verbose logging\n"
    "  -q, --quiet               Suppress console output\n"
    "  -b, --background          Run in background mode\n"
    "  --install-services        Install VELK services if not present (don't start)\n"
    "  --config <file>           Configuration file path\n"
    "  --log-level <level>       Set log level (trace,debug,info,warning,error,critical)\n"
    "  --channel <channel>       Update channel (default: stable)\n"
    "                            - stable: manifest.json\n"
    "                            - test:   manifest-test.json\n"
    "                            - dev:    manifest-dev.json\n"
    "  --install-dir <path>      Installation directory\n"
    "  --manifest <file>         Use local manifest file for testing\n"
    "  -h, --help                Show this help message\n"
    "\nExamples:\n"
    "  VELK_Updater --check-only\n"
    "  VELK_Updater --force --verbose\n"
    "  VELK_Updater --disable-downgrades\n"
    "  VELK_Updater --channel test --verbose\n"
    "  VELK_Updater --install-services --quiet\n"
    "\nUI Version:\n"
    "  VELK_Updater.exe -c test       (use test channel)\n"
    "  VELK_Updater.exe --channel dev (use dev channel)\n";

// Sets the flag an argument names; false when it names none.
bool applyFlag(std::string_view arg, UpdaterConfig& config) {
    if (arg == "-c" || arg == "--check-only") {
        config.checkOnly = true;
    } else if (arg == "-f" || arg == "--force") {
        config.force = true;
    } else if (arg == "--disable-downgrades") {
        config.disableDowngrades = true;
    } else if (arg == "-v" || arg == "--verbose") {
        config.verbose = true;
        config.logLevel = "debug";
    } else if (arg == "-q" || arg == "--quiet") {
        config.quiet = true;
    } else if (arg == "-b" || arg == "--background") {
        config.background = true;
    } else if (arg == "--install-services") {
        config.installServices = true;
    } else {
        return false;
    }
    return true;
}

// The field a value option fills, or nullptr when the argument is no value option.
std::string* valueTarget(std::string_view arg, UpdaterConfig& config) {
    if (arg == "--config") return &config.configFile;
    if (arg == "--log-level") return &config.logLevel;
    if (arg == "--channel") return &config.channel;
    if (arg == "--install-dir") return &config.installDir;
    if (arg == "--manifest") return &config.manifestFile;
    return nullptr;
}

}  // namespace

bool parseCommandLine(int argc, char* argv[], UpdaterConfig& config) {
    for (int index = 1; index < argc; ++index) {
        const std::string arg = argv[index];
        if (arg == "-h" || arg == "--help") {
            printUsage(config);
            return false;
        }
        if (applyFlag(arg, config)) {
            continue;
        }
        std::string* target = valueTarget(arg, config);
        if (target != nullptr && index + 1 < argc) {
            *target = argv[++index];
            continue;
        }
        std::cerr << "Unknown argument: " << arg << "\n";
        printUsage(config);
        return false;
    }
    return true;
}

void printUsage(const UpdaterConfig& /*config*/) { std::cout << kUsage; }

const char* updateBaseUrl() { return VELK_UPDATE_BASE_URL; }

std::string manifestUrlForChannel(const std::string& channel) {
    const std::string base = updateBaseUrl();
    if (channel.empty() || channel == "stable") {
        return base + "/manifest.json";
    }
    return base + "/manifest-" + channel + ".json";
}

}  // namespace velk::updater
