// Delta updates against whole files, through velk_publish --delta-from and the file updater
// on loopback:
// - a realistic change: the updater's own binary and its build with other pinned keys (the
//   same sources but for one constant), reporting the bytes a patched update transfers
//   against the whole file, both wall times, and the link speed below which the patch wins;
// - the worst case, 8 MiB of random bytes replaced by other random bytes: no patch is kept;
// - peak memory of a child applying a patch to a 64 MiB file.
#include <benchmark/benchmark.h>

#include <chrono>
#include <fstream>
#include <functional>
#include <iterator>

#include "../bench_support.hpp"
#include "updater_run.hpp"
#include "crypto/crypto_utils.hpp"
#include "support/http_test_server.hpp"

namespace {

using namespace velk;
namespace fs = std::filesystem;

fs::path deltaDir() { return bench::benchDir("delta"); }

test::HttpTestServer& server() {
    static test::HttpTestServer instance(deltaDir());
    return instance;
}

// Publishes `next` as VELK.dll with a patch from `previous` (when one is worth keeping) into
// the site `name`, and returns its manifest.
updater::Manifest publishDelta(const std::string& name, const fs::path& previous, const fs::path& next) {
    const fs::path work = deltaDir() / (name + "_work");
    fs::remove_all(work);
    fs::create_directories(work / "old");
    fs::create_directories(work / "new");
    fs::copy_file(previous, work / "old" / "VELK.dll");
    fs::copy_file(next, work / "new" / "VELK.dll");
    const fs::path site = deltaDir() / name;
    fs::remove_all(site);
    bench::shell("'" + std::string(VELK_PUBLISH_PATH) + "' --release '" + (work / "new").string() + "' --out '" +
                 site.string() + "' --version 2.0.0 --build 2 --delta-from '" + (work / "old").string() +
                 "' --sign-ed25519 '" + (deltaDir() / "bench.key").string() + "' > /dev/null");
    std::ifstream in(site / "manifest.json");
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return updater::parseManifest(text).value_or(updater::Manifest{});
}

struct Run {
    double seconds = 0;
    std::uint64_t bytes = 0;
};

// Installs `previous` as VELK.dll, then updates it to the manifest's file.
Run update(const std::string& site, const updater::Manifest& manifest, const fs::path& previous, bool patches) {
    const fs::path install = deltaDir() / "install";
    fs::remove_all(install);
    fs::create_directories(install);
    fs::copy_file(previous, install / "VELK.dll");
    Run run;
    const auto start = std::chrono::steady_clock::now();
    run.bytes = bench::runFileUpdater(install, server().url("/" + site), manifest, patches);
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return run;
}

void report(benchmark::State& state, const std::string& site, const fs::path& previous, const fs::path& next) {
    const updater::Manifest manifest = publishDelta(site, previous, next);
    if (manifest.files.empty()) return state.SkipWithError("publishing failed");
    Run whole, patched;
    for (auto _ : state) {
        whole = update(site, manifest, previous, false);
        patched = update(site, manifest, previous, true);
    }
    state.counters["patches_listed"] = static_cast<double>(manifest.files[0].patches.size());
    state.counters["whole_bytes"] = static_cast<double>(whole.bytes);
    state.counters["patched_bytes"] = static_cast<double>(patched.bytes);
    state.counters["bytes_ratio"] = static_cast<double>(patched.bytes) / static_cast<double>(whole.bytes);
    state.counters["whole_s"] = whole.seconds;
    state.counters["patched_s"] = patched.seconds;
    // The link speed under which the patch is the faster update: bytes saved per second of
    // the patch's extra local work (zero when it is not slower even on loopback).
    const double extra = patched.seconds - whole.seconds;
    const double saved = static_cast<double>(whole.bytes) - static_cast<double>(patched.bytes);
    state.counters["break_even_MiB_per_s"] = extra > 0 ? saved / extra / (1 << 20) : 0;
}

void BM_DeltaNeighbouringBuilds(benchmark::State& state) {
    updater::CryptoUtils::initialize();
    report(state, "builds", VELK_UPDATER_PATH, VELK_PINNED_UPDATER_PATH);
}
BENCHMARK(BM_DeltaNeighbouringBuilds)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

// `previous` changed by `change`, written once as `name`.
fs::path derived(const fs::path& previous, const std::string& name, const std::function<void(std::string&)>& change) {
    const fs::path next = deltaDir() / name;
    if (fs::exists(next)) return next;
    std::ifstream in(previous, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    change(bytes);
    std::ofstream(next, std::ios::binary) << bytes;
    return next;
}

void BM_DeltaRandomBytes(benchmark::State& state) {
    const fs::path previous = bench::bigFile(deltaDir() / "random_old.bin", 8ull << 20);
    // Every byte mapped to another: nothing of the old file helps.
    const fs::path next = derived(previous, "random_new.bin", [](std::string& bytes) {
        for (auto& byte : bytes) byte = static_cast<char>(byte * 31 + 7);
    });
    report(state, "random", previous, next);
}
BENCHMARK(BM_DeltaRandomBytes)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();

// 64 MiB with a few bytes changed every MiB, patched by a child.
void BM_PeakMemoryPatching64MiB(benchmark::State& state) {
    const fs::path previous = bench::bigFile(deltaDir() / "big_old.bin", 64ull << 20);
    const fs::path next = derived(previous, "big_new.bin", [](std::string& bytes) {
        for (std::size_t at = 0; at < bytes.size(); at += 1 << 20) bytes[at] = static_cast<char>(~bytes[at]);
    });
    const updater::Manifest manifest = publishDelta("big", previous, next);
    if (manifest.files.empty() || manifest.files[0].patches.empty()) return state.SkipWithError("no patch published");
    long peak = 0;
    for (auto _ : state) peak = bench::peakMemoryKiB([&] { update("big", manifest, previous, true); });
    state.counters["peak_MiB"] = static_cast<double>(peak) / 1024.0;
    state.counters["patch_bytes"] = static_cast<double>(manifest.files[0].patches[0].size);
}
BENCHMARK(BM_PeakMemoryPatching64MiB)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();

}  // namespace
