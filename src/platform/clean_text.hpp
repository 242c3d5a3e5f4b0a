#pragma once

#include <string>
#include <string_view>

namespace velk::updater::platform {

// Text from outside (a manifest, a server, the registry) shown on the console or in a
// log can carry control characters that start a new, forged log line or send a terminal
// sequence. These functions show them as visible escapes instead:
// "\n", "\r", "\x1b" for the C0 controls (tab is kept) and DEL, "\u009b" for the C1
// controls U+0080..U+009F, and "\xNN" for a byte that is not part of valid UTF-8. Valid
// UTF-8 text ("Überwachung", "€") passes unchanged.

// True when escapeControlCharacters would change `text`.
bool hasControlCharacters(std::string_view text);

std::string escapeControlCharacters(std::string_view text);

}  // namespace velk::updater::platform
