// sha256File on a 1 GiB file, beside libsodium hashing the same bytes from memory,
// the system's sha256sum and `openssl dgst -sha256`, with the peak memory of each.
// BM_Sha256FileVsOpenssl times both on the same warm file, turn about, and reports
// sha256File's speed as a fraction of openssl's (the goal is 0.9 or more).
#include <benchmark/benchmark.h>
#include <sodium.h>

#include <chrono>

#include "../bench_support.hpp"
#include "crypto/crypto_utils.hpp"

namespace {

using namespace velk;
constexpr std::uint64_t kSize = 1ull << 30;

const bench::fs::path& file() {
    static const bench::fs::path path = bench::bigFile(bench::benchDir("crypto") / "one_gib.bin", kSize);
    return path;
}

void BM_Sha256File(benchmark::State& state) {
    updater::CryptoUtils::initialize();
    for (auto _ : state) benchmark::DoNotOptimize(updater::CryptoUtils::sha256File(file().string()));
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kSize));
    state.counters["peak_KiB"] = static_cast<double>(
        bench::peakMemoryKiB([] { updater::CryptoUtils::sha256File(file().string()); }));
}
BENCHMARK(BM_Sha256File)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_SodiumFromMemory(benchmark::State& state) {
    std::vector<unsigned char> bytes(kSize);
    std::ifstream(file(), std::ios::binary).read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(kSize));
    unsigned char digest[crypto_hash_sha256_BYTES];
    for (auto _ : state) crypto_hash_sha256(digest, bytes.data(), bytes.size());
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kSize));
}
BENCHMARK(BM_SodiumFromMemory)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_Sha256sumCommand(benchmark::State& state) {
    const std::string command = "sha256sum '" + file().string() + "' > /dev/null";
    for (auto _ : state) bench::shell(command);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kSize));
    state.counters["peak_KiB"] =
        static_cast<double>(bench::peakMemoryKiB([&] { execl("/bin/sh", "sh", "-c", command.c_str(), nullptr); }));
}
BENCHMARK(BM_Sha256sumCommand)->Unit(benchmark::kMillisecond)->Iterations(3);

void BM_OpensslDgstCommand(benchmark::State& state) {
    const std::string command = "openssl dgst -sha256 '" + file().string() + "' > /dev/null";
    for (auto _ : state) bench::shell(command);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kSize));
}
BENCHMARK(BM_OpensslDgstCommand)->Unit(benchmark::kMillisecond)->Iterations(3);

double secondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

void BM_Sha256FileVsOpenssl(benchmark::State& state) {
    updater::CryptoUtils::initialize();
    const std::string command = "openssl dgst -sha256 '" + file().string() + "' > /dev/null";
    double ours = 0;
    double openssl = 0;
    for (auto _ : state) {
        ours += secondsOf([] { benchmark::DoNotOptimize(updater::CryptoUtils::sha256File(file().string())); });
        openssl += secondsOf([&] { bench::shell(command); });
    }
    state.counters["ours_MiBps"] = state.iterations() * 1024.0 / ours;
    state.counters["openssl_MiBps"] = state.iterations() * 1024.0 / openssl;
    state.counters["speed_vs_openssl"] = openssl / ours;
}
BENCHMARK(BM_Sha256FileVsOpenssl)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
