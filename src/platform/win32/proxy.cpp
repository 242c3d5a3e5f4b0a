#include "platform/proxy.hpp"

#include <windows.h>
#include <winhttp.h>

#include <sstream>

#include "platform/elevation.hpp"

namespace velk::updater::platform {
namespace {

std::string narrow(const wchar_t* text) {
    if (text == nullptr) return {};
    const int size = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (size <= 1) return {};
    std::string result(static_cast<std::size_t>(size - 1), '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, result.data(), size, nullptr, nullptr);
    return result;
}

// WinHTTP lists either one proxy for every scheme or "scheme=host:port" entries.
std::string proxyFor(const std::string& list, const std::string& scheme) {
    std::string fallback;
    std::istringstream entries(list);
    for (std::string entry; std::getline(entries, entry, ';');) {
        const auto equals = entry.find('=');
        if (equals == std::string::npos) {
            if (fallback.empty()) fallback = entry;
        } else if (entry.substr(0, equals) == scheme) {
            return entry.substr(equals + 1);
        }
    }
    return fallback;
}

// "<local>" has no libcurl equivalent and is left out; the rest are host names.
std::string bypassList(const std::string& list) {
    std::string result;
    std::istringstream entries(list);
    for (std::string entry; std::getline(entries, entry, ';');) {
        if (entry.empty() || entry == "<local>") continue;
        if (!result.empty()) result += ",";
        result += entry;
    }
    return result;
}

}  // namespace

SystemProxy systemProxy(const std::string& scheme) {
    WINHTTP_PROXY_INFO info{};
    if (!WinHttpGetDefaultProxyConfiguration(&info)) return {};
    SystemProxy found;
    if (info.dwAccessType == WINHTTP_ACCESS_TYPE_NAMED_PROXY) {
        found.proxy = proxyFor(narrow(info.lpszProxy), scheme);
        found.bypass = bypassList(narrow(info.lpszProxyBypass));
    }
    if (info.lpszProxy != nullptr) GlobalFree(info.lpszProxy);
    if (info.lpszProxyBypass != nullptr) GlobalFree(info.lpszProxyBypass);
    return found;
}

}  // namespace velk::updater::platform
