#pragma once

namespace velk::updater::platform {

// Prepares the console for UTF-8 text and colour sequences. Never fails: when the
// output is redirected, only what can be set is set.
void setupConsole();

enum class ConsoleStream { Output, Error };

// True when the stream is an interactive terminal (a console window), false when it is
// redirected to a file or a pipe.
bool isTerminal(ConsoleStream stream);

}  // namespace velk::updater::platform
