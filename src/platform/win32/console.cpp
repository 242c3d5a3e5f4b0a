#include "platform/console.hpp"

#include <windows.h>

namespace velk::updater::platform {

void setupConsole() {
    SetConsoleOutputCP(65001);
    SetConsoleCP(65001);

    HANDLE output = GetStdHandle(STD_OUTPUT_HANDLE);
    if (output == INVALID_HANDLE_VALUE) {
        return;
    }
    DWORD mode = 0;
    // Fails when the output is redirected to a file or pipe; then there is nothing to enable.
    if (GetConsoleMode(output, &mode)) {
        SetConsoleMode(output, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
    }
}

// Only a console handle has a console mode; files and pipes fail the query.
bool isTerminal(ConsoleStream stream) {
    HANDLE handle = GetStdHandle(stream == ConsoleStream::Output ? STD_OUTPUT_HANDLE : STD_ERROR_HANDLE);
    if (handle == INVALID_HANDLE_VALUE || handle == nullptr) return false;
    DWORD mode = 0;
    return GetConsoleMode(handle, &mode) != FALSE;
}

}  // namespace velk::updater::platform
