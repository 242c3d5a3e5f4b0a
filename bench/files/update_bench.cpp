// updateFiles of 1,000 small files and of one 1 GiB file from a loopback server, beside
// the curl command downloading the same files plus sha256sum checking them; and an
// integrity pass over a current installation beside sha256sum -c.
#include <benchmark/benchmark.h>
#include <sodium.h>

#include <fstream>

#include "../bench_support.hpp"
#include "../file_server.hpp"
#include "crypto/crypto_utils.hpp"
#include "files/file_updater.hpp"
#include "http/http_client.hpp"

namespace {

using namespace velk;
namespace fs = std::filesystem;

struct Release {
    fs::path site;
    updater::Manifest manifest;
    std::uint64_t bytes = 0;
};

std::string hexDigest(const fs::path& path) {
    updater::CryptoUtils::initialize();
    return updater::CryptoUtils::toHex(updater::CryptoUtils::sha256File(path.string()).data);
}

Release makeRelease(const std::string& name, int count, std::uint64_t size) {
    Release release;
    release.site = bench::benchDir("files") / name;
    fs::create_directories(release.site / "files");
    for (int i = 0; i < count; ++i) {
        const std::string file = "file" + std::to_string(i) + ".dll";
        const fs::path path = bench::bigFile(release.site / "files" / file, size + static_cast<std::uint64_t>(i));
        updater::ManifestFile entry;
        entry.name = file;
        entry.url = "files/" + file;
        entry.size = fs::file_size(path);
        entry.sha256 = hexDigest(path);
        entry.target_path = file;
        release.manifest.files.push_back(entry);
        release.bytes += entry.size;
    }
    return release;
}

const Release& smallFiles() {
    static const Release release = makeRelease("small", 1000, 4096);
    return release;
}
const Release& oneBigFile() {
    static const Release release = makeRelease("big", 1, 1ull << 30);
    return release;
}

updater::FileUpdaterConfig configFor(const Release& release, const bench::FileServer& server) {
    updater::FileUpdaterConfig config;
    config.installDirectory = (bench::benchDir("files") / "install").string();
    config.backupDirectory = config.installDirectory + "/backup";
    config.tempDirectory = (bench::benchDir("files") / "tmp").string();
    config.baseUrls = {server.url()};
    config.tryArchiveFirst = false;  // no archives published: plain files only, as curl fetches them
    (void)release;
    return config;
}

void runUpdate(const Release& release, bool fresh) {
    static bench::FileServer server(bench::benchDir("files"));
    updater::LoggerConfig quiet;
    quiet.sinks = 0;
    updater::Logger logger(quiet);
    logger.initialize();
    updater::HttpClient http{updater::HttpConfig{}};
    http.initialize();
    auto config = configFor(release, server);
    config.baseUrls = {server.url(release.site.filename().string())};
    if (fresh) fs::remove_all(config.installDirectory);
    updater::FileUpdater updater(config, http, logger);
    updater.initialize();
    const auto results = updater.updateFiles(release.manifest, {});
    for (const auto& result : results) {
        if (!result.success) std::abort();
    }
    logger.shutdown();
}

void BM_UpdateFiles(benchmark::State& state) {
    const Release& release = state.range(0) == 0 ? smallFiles() : oneBigFile();
    for (auto _ : state) runUpdate(release, true);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(release.bytes));
    state.counters["peak_KiB"] = static_cast<double>(bench::peakMemoryKiB([&] { runUpdate(release, true); }));
}
BENCHMARK(BM_UpdateFiles)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();

// curl fetching every file in one invocation, then sha256sum checking them.
void BM_CurlThenSha256sum(benchmark::State& state) {
    static bench::FileServer server(bench::benchDir("files"));
    const Release& release = state.range(0) == 0 ? smallFiles() : oneBigFile();
    const fs::path out = bench::benchDir("files") / "curl_out";
    const fs::path config = bench::benchDir("files") / "curl.cfg";
    const fs::path sums = bench::benchDir("files") / "sums.txt";
    {
        std::ofstream urls(config), checks(sums);
        for (const auto& file : release.manifest.files) {
            urls << "url = \"" << server.url(release.site.filename().string() + "/" + file.url) << "\"\n"
                 << "output = \"" << (out / file.name).string() << "\"\n";
            checks << file.sha256 << "  " << (out / file.name).string() << "\n";
        }
    }
    for (auto _ : state) {
        fs::remove_all(out);
        fs::create_directories(out);
        bench::shell("curl -s -K '" + config.string() + "' && sha256sum --quiet -c '" + sums.string() + "'");
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(release.bytes));
}
BENCHMARK(BM_CurlThenSha256sum)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();

// Every file already current: the pass only hashes what is installed.
void BM_IntegrityPass(benchmark::State& state) {
    const Release& release = state.range(0) == 0 ? smallFiles() : oneBigFile();
    runUpdate(release, true);
    for (auto _ : state) runUpdate(release, false);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(release.bytes));
}
BENCHMARK(BM_IntegrityPass)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();

void BM_Sha256sumCheck(benchmark::State& state) {
    const Release& release = state.range(0) == 0 ? smallFiles() : oneBigFile();
    const fs::path install = bench::benchDir("files") / "install";
    const fs::path sums = bench::benchDir("files") / "installed_sums.txt";
    runUpdate(release, true);
    {
        std::ofstream checks(sums);
        for (const auto& file : release.manifest.files) checks << file.sha256 << "  " << (install / file.target_path).string() << "\n";
    }
    for (auto _ : state) bench::shell("sha256sum --quiet -c '" + sums.string() + "'");
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(release.bytes));
}
BENCHMARK(BM_Sha256sumCheck)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(2)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
