#pragma once

#include <string>

namespace velk::updater::platform {

// The machine's own proxy for a URL scheme ("http" or "https"), as libcurl takes it; empty
// proxy when there is none or when libcurl finds it itself (the proxy variables on Linux).
struct SystemProxy {
    std::string proxy;   // "host:port"
    std::string bypass;  // hosts that go direct, comma-separated
};

SystemProxy systemProxy(const std::string& scheme);

}  // namespace velk::updater::platform
