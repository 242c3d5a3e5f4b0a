#pragma once

#include <cstddef>
#include <string>

namespace velk::updater::platform {

// Event types of the system event log.
enum class EventType { Error = 1, Warning = 2, Information = 4 };

// Reports one event under `source`; a registration is made and released per call.
// Does nothing when the source cannot be registered.
void reportEvent(const std::string& source, EventType type, const std::string& text);

// Passes text to an attached debugger; nothing happens when none listens.
void debugOutput(const std::string& text);

// Bytes that a text-mode file stream writes for "\n": 2 (CR LF) on Windows, 1 elsewhere.
std::size_t textLineEndSize();

}  // namespace velk::updater::platform
