// Caller-side cost of the logger and the worker's file throughput, beside spdlog's
// asynchronous logger with a file sink flushed on every line.
#include <benchmark/benchmark.h>

#include <filesystem>
#include <memory>

#include "logging/logger.hpp"

#ifdef VELK_HAVE_SPDLOG
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#endif

namespace {

namespace fs = std::filesystem;
using namespace velk::updater;

const std::string kMessage = "File VELK.dll is already up to date - skipping download";
const std::string kEmpty;

std::string benchFile(const std::string& name) {
    const fs::path dir = fs::temp_directory_path() / "velk_bench_logging";
    fs::create_directories(dir);
    fs::remove(dir / name);
    return (dir / name).string();
}

LoggerConfig fileLogger(const std::string& name, LogLevel level = LogLevel::Info) {
    LoggerConfig config;
    config.minLevel = level;
    config.sinks = SinkFile;
    config.logFilePath = benchFile(name);
    return config;
}

void BM_FilteredCall(benchmark::State& state) {
    Logger logger(fileLogger("filtered.log", LogLevel::Warning));
    logger.initialize();
    for (auto _ : state) logger.info(kMessage, kEmpty);
    logger.shutdown();
}
BENCHMARK(BM_FilteredCall);

void BM_AcceptedCall(benchmark::State& state) {
    Logger logger(fileLogger("accepted.log"));
    logger.initialize();
    for (auto _ : state) logger.info(kMessage, kEmpty);
    logger.shutdown();
}
BENCHMARK(BM_AcceptedCall)->Iterations(200000);

// Lines written to the file per second: queue a batch, then wait for the worker to drain it.
void BM_VelkFileThroughput(benchmark::State& state) {
    const auto lines = state.range(0);
    for (auto _ : state) {
        Logger logger(fileLogger("throughput.log"));
        logger.initialize();
        for (int64_t i = 0; i < lines; ++i) logger.info(kMessage, kEmpty);
        logger.shutdown();
    }
    state.SetItemsProcessed(state.iterations() * lines);
}
BENCHMARK(BM_VelkFileThroughput)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();

#ifdef VELK_HAVE_SPDLOG
void BM_SpdlogFileThroughput(benchmark::State& state) {
    const auto lines = state.range(0);
    for (auto _ : state) {
        spdlog::init_thread_pool(8192, 1);
        auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(benchFile("spdlog.log"), true);
        auto logger = std::make_shared<spdlog::async_logger>("bench", sink, spdlog::thread_pool(),
                                                             spdlog::async_overflow_policy::block);
        logger->set_pattern("[%Y-%m-%d %H:%M:%S] [%l] [] %v");
        logger->flush_on(spdlog::level::trace);
        for (int64_t i = 0; i < lines; ++i) logger->info(kMessage);
        logger.reset();
        spdlog::shutdown();
    }
    state.SetItemsProcessed(state.iterations() * lines);
}
BENCHMARK(BM_SpdlogFileThroughput)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_SpdlogFilteredCall(benchmark::State& state) {
    spdlog::init_thread_pool(8192, 1);
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(benchFile("spdlog_filtered.log"), true);
    auto logger = std::make_shared<spdlog::async_logger>("filtered", sink, spdlog::thread_pool());
    logger->set_level(spdlog::level::warn);
    for (auto _ : state) logger->info(kMessage);
    logger.reset();
    spdlog::shutdown();
}
BENCHMARK(BM_SpdlogFilteredCall);
#endif

}  // namespace

BENCHMARK_MAIN();
