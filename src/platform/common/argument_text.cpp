#include <string>

#include "platform/elevation.hpp"

namespace velk::updater::platform {

std::string buildArgumentText(int argc, char* argv[]) {
    std::string text;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (i > 1) text += ' ';
        text += arg.find(' ') != std::string::npos ? "\"" + arg + "\"" : arg;
    }
    return text;
}

}  // namespace velk::updater::platform
