#include "support/test_support.hpp"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <random>

namespace velk::test {

TempDir::TempDir() {
    std::random_device device;
    for (int attempt = 0; attempt < 100; ++attempt) {
        const fs::path candidate =
            fs::temp_directory_path() / ("velk_test_" + std::to_string(device()));
        if (fs::create_directory(candidate)) {
            path_ = candidate;
            return;
        }
    }
    throw std::runtime_error("could not create a temporary directory");
}

TempDir::~TempDir() {
    std::error_code ignored;
    fs::remove_all(path_, ignored);
}

ScopedEnv::ScopedEnv(const std::string& name, const std::string& value) : name_(name) {
    if (const char* old = std::getenv(name.c_str())) previous_ = old;
    setEnvironment(name, value);
}

ScopedEnv::~ScopedEnv() { setEnvironment(name_, previous_); }

std::string readFile(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

std::vector<std::string> splitLines(const std::string& text) {
    std::vector<std::string> lines;
    for (std::size_t start = 0; start < text.size();) {
        const std::size_t end = std::min(text.find(kLineEnd, start), text.size());
        lines.push_back(text.substr(start, end - start));
        start = end + kLineEnd.size();
    }
    return lines;
}

void writeFile(const fs::path& path, const std::string& content) {
    if (path.has_parent_path()) fs::create_directories(path.parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << content;
}

void writeRegistry(const fs::path& root, const std::string& body) {
    writeFile(root / "registry.reg", "Windows Registry Editor Version 5.00\n\n" + body);
}

}  // namespace velk::test
