#pragma once
// What the libFuzzer targets share: a scratch folder, and the input as text or as a file.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace velk::fuzz {

// A folder of this process's own under /tmp, made on first use and removed at exit.
inline const std::filesystem::path& workFolder() {
    static const std::filesystem::path folder = [] {
        char name[] = "/tmp/velk_fuzz_XXXXXX";
        return std::filesystem::path(mkdtemp(name));
    }();
    // Registered after the path is made, so it runs before the path is destroyed.
    [[maybe_unused]] static const int removal =
        std::atexit([] { std::error_code ignored; std::filesystem::remove_all(folder, ignored); });
    return folder;
}

inline std::string text(const std::uint8_t* data, std::size_t size) {
    return std::string(reinterpret_cast<const char*>(data), size);
}

// The input as the whole content of `file`.
inline void writeInput(const std::filesystem::path& file, const std::uint8_t* data,
                       std::size_t size) {
    std::ofstream(file, std::ios::binary | std::ios::trunc) << text(data, size);
}

}  // namespace velk::fuzz
