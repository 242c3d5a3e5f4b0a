#include <exception>
#include <iostream>

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
    // The run guards its own modes; this catches what fails before them (for example a
    // system without a temporary directory) so the process still ends with a message.
    try {
        return runSequence(config, argc, argv);
    } catch (const std::exception& error) {
        std::cerr << "Critical error: " << error.what() << "\n";
    } catch (...) {
        std::cerr << "Critical error: unknown exception\n";
    }
    return 1;
}
