#pragma once

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

// Helpers shared by the benchmarks: big files, peak memory of a child, timing a command.
namespace velk::bench {

namespace fs = std::filesystem;

inline fs::path benchDir(const std::string& name) {
    const fs::path dir = fs::temp_directory_path() / ("velk_bench_" + name);
    fs::create_directories(dir);
    return dir;
}

// A file of `size` pseudo-random bytes, written once and reused.
inline fs::path bigFile(const fs::path& path, std::uint64_t size) {
    if (fs::exists(path) && fs::file_size(path) == size) return path;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    std::vector<char> block(1 << 20);
    std::uint64_t state = 88172645463325252ull;
    for (std::uint64_t written = 0; written < size; written += block.size()) {
        for (auto& byte : block) {
            state ^= state << 13;
            state ^= state >> 7;
            state ^= state << 17;
            byte = static_cast<char>(state);
        }
        out.write(block.data(), static_cast<std::streamsize>(std::min<std::uint64_t>(block.size(), size - written)));
    }
    return path;
}

// Peak resident memory, in KiB, of a child process that runs `work`.
inline long peakMemoryKiB(const std::function<void()>& work) {
    const pid_t child = fork();
    if (child == 0) {
        work();
        _exit(0);
    }
    int status = 0;
    rusage usage{};
    wait4(child, &status, 0, &usage);
    return usage.ru_maxrss;
}

inline int shell(const std::string& command) { return std::system(command.c_str()); }

}  // namespace velk::bench
