// Peak resident memory of the built VELK_Updater while a hostile server attacks it: an
// endless file body, a 200 MB manifest, a zip bomb and an endless self-update file. Each
// run is a child process; its peak comes from wait4. Target: under 64 MiB each.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <signal.h>
#include <sodium.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include "../bench_support.hpp"

extern char** environ;

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kMiB = 1024 * 1024;

std::string program(const std::string& name) { return std::string(VELK_BINARY_DIR) + "/" + name; }
std::string baseUrl() { return "http://127.0.0.1:" + std::to_string(VELK_LOOPBACK_PORT); }

std::string sha256Hex(const std::string& bytes) {
    unsigned char digest[crypto_hash_sha256_BYTES];
    crypto_hash_sha256(digest, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
    char hex[2 * crypto_hash_sha256_BYTES + 1];
    sodium_bin2hex(hex, sizeof hex, digest, sizeof digest);
    return hex;
}

void writeFile(const fs::path& path, const std::string& content) {
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << content;
}

std::vector<char*> argv(std::vector<std::string>& args) {
    std::vector<char*> pointers;
    for (auto& arg : args) pointers.push_back(arg.data());
    pointers.push_back(nullptr);
    return pointers;
}

// The update server on the build's port, with a rules file; stopped when destroyed.
class Server {
  public:
    Server(const fs::path& site, const fs::path& rules) {
        int pipeEnds[2];
        if (pipe(pipeEnds) != 0) return;
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, pipeEnds[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, pipeEnds[0]);
        std::vector<std::string> args = {
            program("velk_update_server"),      "--root",  site.string(), "--port",
            std::to_string(VELK_LOOPBACK_PORT), "--rules", rules.string()};
        posix_spawn(&pid_, args[0].c_str(), &actions, nullptr, argv(args).data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        close(pipeEnds[1]);
        char c = 0;  // ready once it has said where it listens
        while (read(pipeEnds[0], &c, 1) == 1 && c != '\n') {
        }
        close(pipeEnds[0]);
    }
    ~Server() {
        if (pid_ <= 0) return;
        kill(pid_, SIGTERM);
        waitpid(pid_, nullptr, 0);
    }
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;

  private:
    pid_t pid_ = -1;
};

std::string entry(const std::string& name, std::uint64_t size, const std::string& sha,
                  const std::string& url) {
    return R"({"name":")" + name + R"(","url":")" + url + R"(","size":)" + std::to_string(size) +
           R"(,"sha256":")" + sha + R"(","target_path":")" + name +
           R"(","action":"replace","backup":false,"critical":false,)" +
           R"("restart_required":false})";
}

struct Attack {
    std::vector<std::string> entries{};
    std::map<std::string, std::string> rules{};  // path -> action
    std::map<std::string, std::string> siteFiles{};
    std::uint64_t localManifestBytes = 0;  // a local manifest of this size, when above 0
};

// One updater run in a fresh sandbox against the attack; the child's peak memory in KiB.
long peakOfRun(const Attack& attack) {
    const fs::path dir = velk::bench::benchDir("security");
    fs::remove_all(dir);
    const fs::path site = dir / "site", install = dir / "install", root = dir / "root",
                   tmp = dir / "tmp";
    fs::create_directories(tmp);
    writeFile(
        root / "registry.reg",
        "Windows Registry Editor Version 5.00\n\n[HKEY_LOCAL_MACHINE\\SOFTWARE\\Quenmark\\VELK]\n"
        "\"InstallPath\"=\"" +
            install.string() + "\"\n");
    std::string files;
    for (const auto& text : attack.entries) files += (files.empty() ? "" : ",") + text;
    writeFile(site / "manifest.json",
              R"({"manifest":{"version":"2.0.0","build_number":"200","release_date":)"
              R"("2026-01-01T00:00:00Z","channel":"stable","files":[)" +
                  files +
                  "]},"
                  R"("signature":{"algorithm":"Ed25519","public_key":"AAAA","signature":"AAAA"}})");
    for (const auto& [name, content] : attack.siteFiles) writeFile(site / name, content);
    std::string rules;
    for (const auto& [path, action] : attack.rules) rules += path + " " + action + "\n";
    writeFile(dir / "rules.txt", rules);
    std::vector<std::string> args = {program("VELK_Updater")};
    if (attack.localManifestBytes > 0) {
        std::ofstream(dir / "huge.json").close();
        fs::resize_file(dir / "huge.json", attack.localManifestBytes);
        args.insert(args.end(), {"--manifest", (dir / "huge.json").string()});
    }

    const Server server(site, dir / "rules.txt");
    std::vector<std::string> env;
    for (char** variable = environ; *variable != nullptr; ++variable) env.emplace_back(*variable);
    env.push_back("VELK_SYSTEM_ROOT=" + root.string());
    env.push_back("TMPDIR=" + tmp.string());
    posix_spawn_file_actions_t actions;  // the run's own output is not the benchmark's
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = -1;
    // posix_spawn shares this process's memory until exec, so the peak is the updater's own.
    posix_spawn(&child, args[0].c_str(), &actions, nullptr, argv(args).data(), argv(env).data());
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    return usage.ru_maxrss;
}

void runAttack(benchmark::State& state, const Attack& attack) {
    long peakKiB = 0;
    for (auto _ : state) peakKiB = std::max(peakKiB, peakOfRun(attack));
    state.counters["peak_MiB"] = static_cast<double>(peakKiB) / 1024.0;
}

const std::string kAnyDigest(64, '0');

void BM_EndlessFileBody(benchmark::State& state) {
    runAttack(state,
              {.entries = {entry("VELK.dll", 10, kAnyDigest, "files/VELK.dll")},
               .rules = {{"/cdn/", "endless"}, {"/mirror/", "endless"}, {"/origin/", "endless"}}});
}

void BM_Manifest200MBServed(benchmark::State& state) {
    runAttack(state, {.rules = {{"/update/manifest.json", "bigbody:209715200"}}});
}

void BM_Manifest200MBLocal(benchmark::State& state) {
    runAttack(state, {.localManifestBytes = 200 * kMiB});
}

void BM_ZipBomb1GiB(benchmark::State& state) {
    runAttack(state, {.entries = {entry("VELK.dll", kMiB, kAnyDigest, "files/VELK.dll")},
                      .rules = {{"/cdn/files/VELK.dll.zip", "zipbomb:1073741824"},
                                {"/cdn/files/VELK.dll", "404"},
                                {"/mirror/", "404"},
                                {"/origin/", "404"}}});
}

void BM_EndlessSelfUpdateFile(benchmark::State& state) {
    const std::string library = "library 2.0";
    runAttack(
        state,
        {.entries = {entry("VELK.dll", library.size(), sha256Hex(library), "files/VELK.dll"),
                     entry("libcurl.dll", 8, kAnyDigest, baseUrl() + "/cdn/files/libcurl.dll")},
         .rules = {{"/cdn/files/libcurl.dll", "endless"}},
         .siteFiles = {{"files/VELK.dll", library}}});
}

}  // namespace

BENCHMARK(BM_EndlessFileBody)->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Manifest200MBServed)->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Manifest200MBLocal)->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ZipBomb1GiB)->Iterations(3)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_EndlessSelfUpdateFile)->Iterations(3)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    if (sodium_init() < 0) return 1;
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
