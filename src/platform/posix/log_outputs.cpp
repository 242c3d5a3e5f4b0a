#include "platform/log_outputs.hpp"

#include <syslog.h>

#include <cstdio>
#include <fstream>
#include <string>

namespace velk::updater::platform {
namespace {

int priorityOf(EventType type) {
    switch (type) {
        case EventType::Error:
            return LOG_ERR;
        case EventType::Warning:
            return LOG_WARNING;
        default:
            return LOG_INFO;
    }
}

// A tracer (a debugger) is attached when /proc says so.
bool tracerAttached() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("TracerPid:", 0) == 0) return std::stoi(line.substr(10)) != 0;
    }
    return false;
}

}  // namespace

// The system log stands in for the event log, with the source as the ident.
void reportEvent(const std::string& source, EventType type, const std::string& text) {
    openlog(source.c_str(), LOG_PID, LOG_USER);
    syslog(priorityOf(type), "%s", text.c_str());
    closelog();
}

void debugOutput(const std::string& text) {
    if (!tracerAttached()) return;
    std::fputs(text.c_str(), stderr);
    std::fflush(stderr);
}

std::size_t textLineEndSize() { return 1; }

}  // namespace velk::updater::platform
