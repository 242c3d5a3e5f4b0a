#include "platform/local_time.hpp"

namespace velk::updater::platform {

std::tm localTime(std::time_t time) {
    std::tm local{};
    localtime_s(&local, &time);
    return local;
}

}  // namespace velk::updater::platform
