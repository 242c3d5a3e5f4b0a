// The file updater beside the tools a person would use for the same work, each benchmark
// printing its ratio to them (below 1 is faster):
// - the integrity pass of `VELK_Updater --check-only --manifest` over a current
//   installation of four files (1 GiB) against `sha256sum -c` of the same files;
// - a fresh install of one 512 MiB file, and of 1,000 files of 4 KiB, from a loopback
//   server against one `curl` process (keep-alive) plus `sha256sum -c`;
// - peak memory of a child installing a 1 GiB file;
// - the bytes a server sends for a 64 MiB file whose first transfer is cut at half and
//   resumed, against the file's size.
// VELK_BENCH_UPDATER names another VELK_Updater to time, e.g. an earlier build.
#include <benchmark/benchmark.h>
#include <sodium.h>

#include <chrono>
#include <fstream>
#include <iterator>

#include "../bench_support.hpp"
#include "support/http_test_server.hpp"
#include "crypto/crypto_utils.hpp"
#include "updater_run.hpp"

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

const Release& release(int which) {
    static const Release small = makeRelease("small", 1000, 4096);
    static const Release half = makeRelease("half", 1, 512ull << 20);
    static const Release whole = makeRelease("whole", 1, 1ull << 30);
    static const Release four = makeRelease("four", 4, 256ull << 20);
    switch (which) {
        case 0: return small;
        case 1: return half;
        case 2: return whole;
        default: return four;
    }
}

test::HttpTestServer& server() {
    static test::HttpTestServer instance(bench::benchDir("files"));
    return instance;
}

fs::path installDir() { return bench::benchDir("files") / "install"; }

void runUpdate(const Release& release, bool fresh) {
    if (fresh) fs::remove_all(installDir());
    bench::runFileUpdater(installDir(), server().url("/" + release.site.filename().string()), release.manifest);
}

double secondsOf(const std::function<void()>& work) {
    const auto start = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

// curl fetching every file in one process (one connection, kept alive), then sha256sum.
double curlThenSha256sum(const Release& release) {
    const fs::path out = bench::benchDir("files") / "curl_out";
    const fs::path config = bench::benchDir("files") / "curl.cfg";
    const fs::path sums = bench::benchDir("files") / "sums.txt";
    {
        std::ofstream urls(config), checks(sums);
        for (const auto& file : release.manifest.files) {
            urls << "url = \"" << server().url("/" + release.site.filename().string() + "/" + file.url) << "\"\n"
                 << "output = \"" << (out / file.name).string() << "\"\n";
            checks << file.sha256 << "  " << (out / file.name).string() << "\n";
        }
    }
    fs::remove_all(out);
    fs::create_directories(out);
    const double seconds = secondsOf([&] {
        bench::shell("curl -s -K '" + config.string() + "' && sha256sum --quiet -c '" + sums.string() + "'");
    });
    fs::remove_all(out);
    return seconds;
}

// A fresh install against curl plus sha256sum; arg 0: 1,000 files of 4 KiB, 1: 512 MiB.
void BM_FreshInstall(benchmark::State& state) {
    const Release& wanted = release(static_cast<int>(state.range(0)));
    double ours = 0;
    for (auto _ : state) ours += secondsOf([&] { runUpdate(wanted, true); });
    ours /= static_cast<double>(state.iterations());
    const double reference = curlThenSha256sum(wanted);
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(wanted.bytes));
    state.counters["curl_sha256sum_s"] = reference;
    state.counters["ratio"] = ours / reference;
    fs::remove_all(installDir());
}
BENCHMARK(BM_FreshInstall)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

// Peak resident memory of a child that installs one 1 GiB file.
void BM_PeakMemoryInstalling1GiB(benchmark::State& state) {
    const Release& whole = release(2);
    long peak = 0;
    for (auto _ : state) peak = bench::peakMemoryKiB([&] { runUpdate(whole, true); });
    state.counters["peak_MiB"] = static_cast<double>(peak) / 1024.0;
    fs::remove_all(installDir());
}
BENCHMARK(BM_PeakMemoryInstalling1GiB)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();

// A 64 MiB file whose first answer stops at half; the update resumes it. Reports what the
// server sent in all against the file's size (1.0 would be a perfect resume).
void BM_ResumedDownload(benchmark::State& state) {
    using Answer = test::HttpTestServer::Answer;
    using Kind = test::HttpTestServer::Kind;
    constexpr std::uint64_t kSize = 64ull << 20;
    const fs::path source = bench::bigFile(bench::benchDir("files") / "resume.bin", kSize);
    std::ifstream in(source, std::ios::binary);
    const std::string content((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    Release resumed;
    resumed.site = bench::benchDir("files") / "resume";
    updater::ManifestFile entry;
    entry.name = entry.target_path = "resume.dll";
    entry.url = "files/resume.dll";
    entry.size = kSize;
    entry.sha256 = hexDigest(source);
    resumed.manifest.files.push_back(entry);
    resumed.bytes = kSize;
    const std::string path = "/resume/files/resume.dll";
    server().set(path, content, 200, Kind::Ranged);
    std::uint64_t sent = 0;
    for (auto _ : state) {
        server().queue(path, Answer{200, content, Kind::Ranged, "\"v1\"", kSize / 2, ""});
        const std::uint64_t before = server().rangedBytesSent();
        runUpdate(resumed, true);
        sent = server().rangedBytesSent() - before;
    }
    state.counters["sent_per_file"] = static_cast<double>(sent) / static_cast<double>(kSize);
    fs::remove_all(installDir());
}
BENCHMARK(BM_ResumedDownload)->Unit(benchmark::kMillisecond)->Iterations(1)->UseRealTime();

std::string updaterProgram() {
    const char* other = std::getenv("VELK_BENCH_UPDATER");
    return other != nullptr ? other : VELK_UPDATER_PATH;
}

// The integrity pass of the program over a current installation of four files (1 GiB),
// the manifest naming the installed version so that nothing else happens.
void BM_CheckOnlyIntegrityPass(benchmark::State& state) {
    const Release& four = release(3);
    const fs::path root = bench::benchDir("files") / "root";
    const fs::path install = root / "install";
    fs::remove_all(root);
    fs::create_directories(install);
    std::ofstream manifest(root / "manifest.json"), sums(root / "sums.txt");
    manifest << R"({"manifest": {"version": "1.0.0", "build_number": "1", "files": [)";
    for (std::size_t i = 0; i < four.manifest.files.size(); ++i) {
        const auto& file = four.manifest.files[i];
        fs::copy_file(four.site / file.url, install / file.target_path);
        manifest << (i == 0 ? "" : ",") << R"({"name": ")" << file.name << R"(", "url": ")" << file.url
                 << R"(", "size": )" << file.size << R"(, "sha256": ")" << file.sha256 << R"(", "target_path": ")"
                 << file.target_path << R"("})";
        sums << file.sha256 << "  " << (install / file.target_path).string() << "\n";
    }
    manifest << R"(]}, "signature": {"algorithm": "Ed25519", "public_key": "a2V5", "signature": "c2ln"}})";
    manifest.close();
    sums.close();
    std::ofstream(root / "registry.reg") << "Windows Registry Editor Version 5.00\n\n"
                                         << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quenmark\\VELK]\n\"InstallPath\"=\""
                                         << install.string() << "\"\n\"Version\"=\"1.0.0\"\n\"BuildNumber\"=\"1\"\n";
    const std::string command = "VELK_SYSTEM_ROOT='" + root.string() + "' TMPDIR='" + root.string() + "' '" +
                                updaterProgram() + "' --quiet --check-only --manifest '" +
                                (root / "manifest.json").string() + "' >/dev/null";
    bench::shell(command);  // warms the page cache, as sha256sum will find it
    double ours = 0;
    for (auto _ : state) {
        ours += secondsOf([&] {
            if (bench::shell(command) != 0) state.SkipWithError("check run failed");
        });
    }
    ours /= static_cast<double>(state.iterations());
    const double reference = secondsOf([&] { bench::shell("sha256sum --quiet -c '" + (root / "sums.txt").string() + "'"); });
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(four.bytes));
    state.counters["sha256sum_s"] = reference;
    state.counters["ratio"] = ours / reference;
    fs::remove_all(root);
}
BENCHMARK(BM_CheckOnlyIntegrityPass)->Unit(benchmark::kMillisecond)->Iterations(3)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    fs::remove_all(bench::benchDir("files"));  // the big files are made again by the next run
    return 0;
}
