// Loading the emulated registry file: a large export with many small keys, one key with
// many values, and one long binary value over continuation lines. Sizes in KiB.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <string>

#include "../bench_support.hpp"
#include "platform/posix/registry_file.hpp"

namespace {

using namespace velk;

// Small keys of one value each, as a large export has them, until the text reaches `size`.
std::string manyKeys(std::size_t size) {
    std::string text = "Windows Registry Editor Version 5.00\r\n";
    for (int key = 0; text.size() < size; ++key) {
        text += "\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\K" + std::to_string(key) +
                "]\r\n\"V\"=dword:00000001\r\n";
    }
    return text;
}

// One key with many short values.
std::string manyValues(std::size_t size) {
    std::string text =
        "Windows Registry Editor Version 5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bench]\r\n";
    for (int value = 0; text.size() < size; ++value)
        text += "\"V" + std::to_string(value) + "\"=\"x\"\r\n";
    return text;
}

// One hex value, 25 bytes to a line as the export writes it.
std::string longHexValue(std::size_t size) {
    std::string text =
        "Windows Registry Editor Version "
        "5.00\r\n\r\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Bench]\r\n\"Blob\"=hex:";
    while (text.size() < size)
        text +=
            "00,01,02,03,04,05,06,07,08,09,0a,0b,0c,0d,0e,0f,10,11,12,13,14,15,16,17,18,\\\r\n  ";
    return text + "ff\r\n";
}

void loadFile(benchmark::State& state, const std::string& name, const std::string& text) {
    const bench::fs::path root = bench::benchDir("registry_" + name);
    std::ofstream(root / "registry.reg", std::ios::binary | std::ios::trunc) << text;
    setenv("VELK_SYSTEM_ROOT", root.c_str(), 1);
    for (auto _ : state) {
        const auto registry = updater::platform::RegistryFile::load();
        if (!registry) state.SkipWithError("registry file did not parse");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}

void BM_LoadManyKeys(benchmark::State& state) {
    loadFile(state, "keys", manyKeys(static_cast<std::size_t>(state.range(0)) * 1024));
}
BENCHMARK(BM_LoadManyKeys)
    ->Unit(benchmark::kMillisecond)
    ->Arg(256)
    ->Arg(1024)
    ->Arg(10240)
    ->Iterations(1);

void BM_LoadManyValues(benchmark::State& state) {
    loadFile(state, "values", manyValues(static_cast<std::size_t>(state.range(0)) * 1024));
}
BENCHMARK(BM_LoadManyValues)
    ->Unit(benchmark::kMillisecond)
    ->Arg(256)
    ->Arg(1024)
    ->Arg(10240)
    ->Iterations(1);

void BM_LoadLongHexValue(benchmark::State& state) {
    loadFile(state, "hex", longHexValue(static_cast<std::size_t>(state.range(0)) * 1024));
}
BENCHMARK(BM_LoadLongHexValue)
    ->Unit(benchmark::kMillisecond)
    ->Arg(256)
    ->Arg(1024)
    ->Arg(10240)
    ->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
