// libFuzzer target: a manifest entry's name, target path and URL, as three lines. What the
// path rules let through stays inside the installation folder and below every download base.
#include <regex>
#include <sstream>
#include <vector>

#include "delivery/url_candidates.hpp"
#include "fuzz_support.hpp"
#include "release/path_rules.hpp"

namespace {

using namespace velk::updater;

// Either separator counts, as on Windows.
std::filesystem::path asPosix(std::string text) {
    for (char& c : text) c = c == '\\' ? '/' : c;
    return text;
}

bool staysInside(const std::string& targetPath) {
    const std::filesystem::path root = "/installation";
    const auto resolved = (root / asPosix(targetPath)).lexically_normal();
    const auto relative = resolved.lexically_relative(root);
    return !relative.empty() && *relative.begin() != ".." && relative != ".";
}

// A server decodes "%2e" before it resolves a path; ".." in any spelling leaves the base.
bool leavesBase(const std::string& path) {
    static const std::regex encodedDot("%2[eE]");
    const std::string decoded = std::regex_replace(asPosix(path).string(), encodedDot, ".");
    std::stringstream segments(decoded.substr(0, decoded.find_first_of("?#")));
    for (std::string segment; std::getline(segments, segment, '/');) {
        if (segment == "..") return true;
    }
    return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    std::stringstream input(velk::fuzz::text(data, size));
    std::string name, targetPath, url;
    std::getline(input, name);
    std::getline(input, targetPath);
    std::getline(input, url);

    const bool nameAllowed = fileNameProblem(name).empty();
    if (nameAllowed && (name.find_first_of("/\\:") != std::string::npos || name == "." || name == "..")) {
        __builtin_trap();
    }
    if (targetPathProblem(targetPath).empty() && !staysInside(targetPath)) __builtin_trap();
    if (!nameAllowed || !urlPathProblem(url).empty()) return 0;

    const std::vector<std::string> bases = {"https://cdn.example/updates", "http://mirror.example/a/b/"};
    UrlCandidateGenerator candidates(bases, true);
    candidates.reset(url, name);
    std::string candidate;
    bool isArchive = false;
    while (candidates.next(candidate, isArchive)) {
        const bool belowABase = candidate.rfind("https://cdn.example/updates/", 0) == 0 ||
                                candidate.rfind("http://mirror.example/a/b/", 0) == 0;
        if (!belowABase || leavesBase(candidate)) __builtin_trap();
    }
    return 0;
}
