#include "app/run_sequence.hpp"

namespace velk::updater {

int runSequence(UpdaterConfig& /*config*/, int /*argc*/, char* /*argv*/[]) {
    // The update work is not wired in yet; a run with valid arguments does nothing.
    return 0;
}

}  // namespace velk::updater
