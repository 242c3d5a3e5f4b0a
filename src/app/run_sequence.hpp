#pragma once

#include "app/options.hpp"

namespace velk::updater {

// The body of a run after the command line was parsed: privilege gate, settings,
// logger, installation report, the chosen mode and the shutdown. Returns the exit code.
int runSequence(UpdaterConfig& config, int argc, char* argv[]);

}  // namespace velk::updater
