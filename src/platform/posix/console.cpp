#include "platform/console.hpp"

#include <unistd.h>

namespace velk::updater::platform {

// A POSIX terminal already speaks UTF-8 and interprets colour sequences.
void setupConsole() {}

bool isTerminal(ConsoleStream stream) {
    return isatty(stream == ConsoleStream::Output ? STDOUT_FILENO : STDERR_FILENO) == 1;
}

}  // namespace velk::updater::platform
