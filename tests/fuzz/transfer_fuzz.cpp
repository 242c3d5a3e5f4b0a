// libFuzzer target: a server's ETag is kept only as it came and when it cannot break a request
// line; a 206 only for exactly the rest; no Retry-After waits past the policy.
#include <fuzzer/FuzzedDataProvider.h>

#include <charconv>

#include "delivery/partial_download.hpp"
#include "delivery/retry.hpp"
#include "fuzz_support.hpp"

namespace {

using namespace velk::updater;
namespace fs = std::filesystem;
using velk::fuzz::workFolder;

constexpr std::uint64_t kSize = 1000;
constexpr std::uint64_t kKept = 100;

PartialDownload::Target target() {
    const fs::path file = workFolder() / "VELK.dll.tmp.partial";
    return {file.string(), file.string() + ".resume", "https://cdn.example/files/VELK.dll", kSize,
            std::string(64, 'a'), kSize};
}

// A first attempt cut after kKept bytes, the server's ETag being `etag`.
void cutAttempt(const std::string& etag) {
    fs::remove_all(workFolder());
    fs::create_directories(workFolder());
    PartialDownload first(target());
    std::string error;
    if (!first.open(error) || !first.begin(HttpAnswer{200, "", etag, "", ""})) __builtin_trap();
    const std::string body(kKept, 'x');
    first.write(body.data(), body.size());
    first.finish();
}

// The three numbers of "bytes FIRST-LAST/TOTAL" as an independent reader sees them.
bool rangeIsTheRest(const std::string& text) {
    std::uint64_t numbers[3] = {};
    const char* at = text.data() + 6;
    const char* end = text.data() + text.size();
    const char separators[] = {'-', '/', '\0'};
    if (text.compare(0, 6, "bytes ") != 0) return false;
    for (int i = 0; i < 3; ++i) {
        const auto [next, problem] = std::from_chars(at, end, numbers[i]);
        if (problem != std::errc{} || (i < 2 ? next == end || *next != separators[i] : next != end)) return false;
        at = next + 1;
    }
    return numbers[0] == kKept && numbers[1] == kSize - 1 && numbers[2] == kSize;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    FuzzedDataProvider input(data, size);
    const std::string etag = input.ConsumeRandomLengthString(600);
    const std::string contentRange = input.ConsumeRandomLengthString(100);
    const auto retry = input.ConsumeIntegral<std::uint32_t>();
    const std::string retryAfter = input.ConsumeRemainingBytesAsString();

    cutAttempt(etag);
    PartialDownload next(target());
    std::string error;
    if (!next.open(error)) __builtin_trap();
    if (next.continuedFrom() != 0) {
        const HttpHeaders headers = next.requestHeaders();
        const bool kept = headers.size() == 2 && headers[1].second == etag;
        if (next.continuedFrom() != kKept || !kept || etag.find_first_of("\r\n") != std::string::npos) __builtin_trap();
        const bool taken = next.begin(HttpAnswer{206, contentRange, "", "", ""});
        if (taken != rangeIsTheRest(contentRange)) __builtin_trap();
    }
    next.finish();

    const TransferPolicy policy;
    const auto wait = retryDelay(policy, retry, retryAfter, 0.5);
    if (wait.count() < 0 || wait > std::max(policy.retryAfterCap, policy.maxDelay)) __builtin_trap();
    return 0;
}
