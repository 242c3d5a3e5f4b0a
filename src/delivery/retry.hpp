#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "http/http_client.hpp"

// When a failed transfer is tried again, and how long the updater waits before it does.
namespace velk::updater {

struct TransferPolicy {
    std::uint32_t maxRetries = 3;  // further attempts on the same candidate
    std::chrono::milliseconds firstDelay{1000};  // doubled for every further retry
    std::chrono::milliseconds maxDelay{15000};
    std::chrono::milliseconds retryAfterCap{60000};  // a server's Retry-After is honoured up to this
    // The time one run may spend on failed attempts and the waits after them: once spent,
    // no failure is tried again, so dead or black-holed sources cannot hold a run for long.
    std::chrono::milliseconds retryBudget{120000};
    // Below this average speed over the window a candidate is left while another remains.
    std::uint64_t minBytesPerSecond = 32 * 1024;
    std::uint64_t slowWindowSeconds = 20;
};

enum class Verdict { Success, Retry, NextCandidate };

// 2xx succeeds; a transient failure (no connection, reset, timeout, a cut body, 408, 429,
// 500, 502, 503, 504) is worth another attempt; anything else (404, 403, 410, a bound passed,
// a digest or size mismatch) moves on at once.
Verdict judge(const HttpResponse& response);

// The delay-seconds of a Retry-After header; nothing for a date or anything unreadable.
std::optional<std::chrono::seconds> parseRetryAfter(const std::string& value);

// The wait before retry number `retry` (from 0): the server's Retry-After up to its cap, or
// the doubled delay with a random half taken off, so that a fleet does not return in step.
// `randomFraction` is in [0, 1).
std::chrono::milliseconds retryDelay(const TransferPolicy& policy, std::uint32_t retry, const std::string& retryAfter,
                                     double randomFraction);

}  // namespace velk::updater
