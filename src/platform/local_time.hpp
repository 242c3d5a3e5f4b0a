#pragma once

#include <ctime>

namespace velk::updater::platform {

// The calendar time of `time` in the local time zone (thread-safe).
std::tm localTime(std::time_t time);

}  // namespace velk::updater::platform
