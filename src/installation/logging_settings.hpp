#pragma once

#include <cstdint>
#include <string>

#include "logging/logger.hpp"

namespace velk::updater {

// A REG_DWORD of the "Logging" key, or the default when the key or value is absent or of
// another type.
std::uint32_t readLoggingDword(const std::string& name, std::uint32_t defaultValue);
// A REG_SZ of the "Logging" key without its terminator, or the default.
std::string readLoggingString(const std::string& name, const std::string& defaultValue);
// "EnableUpdaterLogs" is not 0 (on by default).
bool isUpdaterLoggingEnabled();

// Deletes ".log" files of the directory older than the retention period when the registry
// asks for clean-up at start-up. Reports through the logger; never throws.
void cleanupOldLogs(const std::string& logDirectory, Logger& logger);

}  // namespace velk::updater
