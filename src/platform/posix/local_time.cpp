#include "platform/local_time.hpp"

namespace velk::updater::platform {

std::tm localTime(std::time_t time) {
    std::tm local{};
    localtime_r(&time, &local);
    return local;
}

}  // namespace velk::updater::platform
