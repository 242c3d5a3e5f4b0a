#include "platform/proxy.hpp"

namespace velk::updater::platform {

// libcurl reads http_proxy, https_proxy, all_proxy and no_proxy itself.
SystemProxy systemProxy(const std::string&) { return {}; }

}  // namespace velk::updater::platform
