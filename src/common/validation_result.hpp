#pragma once

#include <string>
#include <vector>

namespace velk::updater {

// Outcome of the installation, service and version checks.
struct ValidationResult {
    bool valid = false;
    std::string message;
    std::vector<std::string> missingItems;
};

}  // namespace velk::updater
