#pragma once

#include <chrono>

#include "delivery/retry.hpp"

namespace velk::test {

// Retries as a run makes them, with waits of milliseconds.
inline updater::TransferPolicy quickRetries() {
    updater::TransferPolicy policy;
    policy.firstDelay = std::chrono::milliseconds(1);
    policy.maxDelay = std::chrono::milliseconds(4);
    policy.retryAfterCap = std::chrono::milliseconds(50);
    return policy;
}

}  // namespace velk::test
