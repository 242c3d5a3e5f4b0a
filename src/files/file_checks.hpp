#pragma once

#include <filesystem>
#include <string>

#include "logging/logger.hpp"

// Small pieces shared by the integrity checks of the file updater and the update client.
namespace velk::updater {

// Digests as hexadecimal text, equal but for ASCII letter case.
bool sameDigestIgnoringCase(const std::string& a, const std::string& b);

// Deletes a wrong installed copy so that its replacement is downloaded cleanly, logging
// "Successfully deleted <kind> file: ..." and, when asked, a warning if nothing was
// removed; a failing removal is logged, never thrown.
void deleteWrongCopy(Logger& logger, const std::filesystem::path& path, const std::string& name,
                     const std::string& kind, bool warnWhenNothingRemoved);

}  // namespace velk::updater
