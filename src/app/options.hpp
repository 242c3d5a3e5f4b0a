#pragma once

#include <string>

namespace velk::updater {

// The options of one run, filled from the command line only.
struct UpdaterConfig {
    bool checkOnly = false;
    bool force = false;
    bool disableDowngrades = false;
    bool verbose = false;
    bool quiet = false;
    bool background = false;
    bool installServices = false;
    std::string configFile;
    std::string logLevel = "info";
    std::string channel = "stable";
    std::string installDir;
    std::string manifestFile;
};

// Fills `config` from the arguments. Returns false when the run must end: the usage
// text was printed on request, or after an argument it did not understand.
bool parseCommandLine(int argc, char* argv[], UpdaterConfig& config);

// Writes the usage text to standard output.
void printUsage(const UpdaterConfig& config);

// The manifest URL of a release channel on the primary update server.
std::string manifestUrlForChannel(const std::string& channel);

// The primary update base URL this build was configured with (no trailing slash).
const char* updateBaseUrl();

}  // namespace velk::updater
