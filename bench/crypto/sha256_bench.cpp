// sha256File on a 1 GiB file, beside libsodium hashing the same bytes from memory and
// the system's sha256sum, with the peak memory of each.
#include <benchmark/benchmark.h>
#include <sodium.h>

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

}  // namespace

BENCHMARK_MAIN();
