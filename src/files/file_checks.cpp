#include "files/file_checks.hpp"

#include <algorithm>
#include <cctype>

namespace velk::updater {

bool sameDigestIgnoringCase(const std::string& a, const std::string& b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](unsigned char x, unsigned char y) {
               return std::tolower(x) == std::tolower(y);
           });
}

void deleteWrongCopy(Logger& logger, const std::filesystem::path& path, const std::string& name,
                     const std::string& kind, bool warnWhenNothingRemoved) {
    try {
        if (std::filesystem::remove(path)) {
            logger.info("Successfully deleted " + kind + " file: " + name);
        } else if (warnWhenNothingRemoved) {
            logger.warning("Failed to delete " + kind + " file: " + name);
        }
    } catch (const std::exception& error) {
        logger.error("Exception while deleting " + kind + " file " + name + ": " + error.what());
    }
}

}  // namespace velk::updater
