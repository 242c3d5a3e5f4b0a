#pragma once

namespace velk::updater::platform {

// Prepares the console for UTF-8 text and colour sequences. Never fails: when the
// output is redirected, only what can be set is set.
void setupConsole();

}  // namespace velk::updater::platform
