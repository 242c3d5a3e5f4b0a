#include "delivery/retry.hpp"

#include <algorithm>

namespace velk::updater {

Verdict judge(const HttpResponse& response) {
    const int status = response.statusCode;
    if (response.tooSlow) return Verdict::NextCandidate;
    if (status >= 200 && status <= 299) {
        return response.error.empty() && !response.stoppedByReceiver ? Verdict::Success : Verdict::NextCandidate;
    }
    if (status == 0) return response.transient ? Verdict::Retry : Verdict::NextCandidate;
    switch (status) {
        case 408:
        case 429:
        case 500:
        case 502:
        case 503:
        case 504:
            return Verdict::Retry;
        default:
            return Verdict::NextCandidate;
    }
}

std::optional<std::chrono::seconds> parseRetryAfter(const std::string& value) {
    if (value.empty() || value.size() > 9) return std::nullopt;
    if (!std::all_of(value.begin(), value.end(), [](char c) { return c >= '0' && c <= '9'; })) return std::nullopt;
    return std::chrono::seconds(std::stol(value));
}

std::chrono::milliseconds retryDelay(const TransferPolicy& policy, std::uint32_t retry, const std::string& retryAfter,
                                     double randomFraction) {
    using std::chrono::milliseconds;
    if (const auto asked = parseRetryAfter(retryAfter)) {
        return std::min<milliseconds>(std::chrono::duration_cast<milliseconds>(*asked), policy.retryAfterCap);
    }
    milliseconds delay = policy.firstDelay;
    for (std::uint32_t i = 0; i < retry && delay < policy.maxDelay; ++i) delay *= 2;
    delay = std::min(delay, policy.maxDelay);
    return milliseconds(delay.count() - static_cast<std::int64_t>(static_cast<double>(delay.count()) * randomFraction / 2));
}

}  // namespace velk::updater
