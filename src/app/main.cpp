#include "app/options.hpp"
#include "app/run_sequence.hpp"
#include "platform/console.hpp"

int main(int argc, char* argv[]) {
    using namespace velk::updater;

    UpdaterConfig config;
    // Help or a bad argument ends the run before anything else is touched.
    if (!parseCommandLine(argc, argv, config)) {
        return 1;
    }
    platform::setupConsole();
    return runSequence(config, argc, argv);
}
