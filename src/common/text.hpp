#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

// Small helpers that several rooms share; no I/O.
namespace velk::updater {

// "a, b, c", as the checks list what they miss.
inline std::string joinNames(const std::vector<std::string>& names) {
    std::string text;
    for (const auto& name : names) text += (text.empty() ? "" : ", ") + name;
    return text;
}

// Whole milliseconds since `start` on the monotonic clock, truncated.
inline std::uint64_t millisecondsSince(std::chrono::steady_clock::time_point start) {
    const auto elapsed = std::chrono::steady_clock::now() - start;
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(elapsed).count());
}

}  // namespace velk::updater
