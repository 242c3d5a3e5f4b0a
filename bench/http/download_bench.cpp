// HttpClient::download of a 1 GiB file into a new file in the download folder's way from a loopback server, beside the curl command
// fetching the same file from the same server; peak memory of a 200 MiB download.
#include <benchmark/benchmark.h>

#include "../bench_support.hpp"
#include "support/http_test_server.hpp"
#include "delivery/partial_download.hpp"
#include "http/http_client.hpp"

namespace {

using namespace velk;
constexpr std::uint64_t kSize = 1ull << 30;

updater::HttpResponse downloadTo(updater::HttpClient& client, const std::string& url, const std::string& target) {
    updater::PartialDownload body({target, "", url, 0, "", 0});
    std::string error;
    if (!body.open(error)) return {};
    updater::HttpResponse response = client.download(url, body, {});
    body.finish();
    return response;
}

test::HttpTestServer& server() {
    static const auto dir = bench::benchDir("http");
    static bool made = (bench::bigFile(dir / "one_gib.bin", kSize), bench::bigFile(dir / "two_hundred_mib.bin", 200ull << 20), true);
    static test::HttpTestServer instance(dir);
    (void)made;
    return instance;
}

void BM_HttpClientDownload(benchmark::State& state) {
    const std::string target = (bench::benchDir("http") / "out_client.bin").string();
    updater::HttpClient client{updater::HttpConfig{}};
    client.initialize();
    const std::string url = server().url("/one_gib.bin");
    for (auto _ : state) {
        const auto response = downloadTo(client, url, target);
        if (response.bytesDownloaded != kSize) state.SkipWithError("short download");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kSize));
    const std::string small = server().url("/two_hundred_mib.bin");
    state.counters["peak_KiB_200MiB"] = static_cast<double>(bench::peakMemoryKiB([&] {
        updater::HttpClient child{updater::HttpConfig{}};
        child.initialize();
        downloadTo(child, small, target);
    }));
    bench::fs::remove(target);
}
BENCHMARK(BM_HttpClientDownload)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

void BM_CurlCommand(benchmark::State& state) {
    const std::string target = (bench::benchDir("http") / "out_curl.bin").string();
    const std::string command = "curl -s -o '" + target + "' '" + server().url("/one_gib.bin") + "'";
    for (auto _ : state) bench::shell(command);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kSize));
    bench::fs::remove(target);
}
BENCHMARK(BM_CurlCommand)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
