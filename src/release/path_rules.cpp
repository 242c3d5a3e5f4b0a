#include "release/path_rules.hpp"

#include <algorithm>
#include <array>
#include <cctype>
#include <string_view>
#include <vector>

namespace velk::updater {
namespace {

std::string upper(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return result;
}

bool hasControlCharacter(std::string_view text) {
    return std::any_of(text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7F; });
}

// Windows opens these devices whatever the folder or extension ("nul.dll", "COM1.txt").
bool isDeviceName(std::string_view name) {
    static constexpr std::array<std::string_view, 6> kPlain = {"CON", "PRN", "AUX", "NUL", "CONIN$", "CONOUT$"};
    const std::string stem = upper(name.substr(0, name.find('.')));
    if (std::find(kPlain.begin(), kPlain.end(), stem) != kPlain.end()) return true;
    const bool numbered = stem.size() == 4 && (stem.rfind("COM", 0) == 0 || stem.rfind("LPT", 0) == 0);
    return numbered && stem[3] >= '0' && stem[3] <= '9';
}

// A segment as a server reads it: "%2e" is a dot, so ".%2E" is "..".
std::string withDotsDecoded(std::string_view segment) {
    const std::string text = upper(segment);
    std::string decoded;
    for (std::size_t at = 0; at < text.size(); ++at) {
        if (text.compare(at, 3, "%2E") == 0) {
            decoded += '.';
            at += 2;
        } else {
            decoded += text[at];
        }
    }
    return decoded;
}

std::vector<std::string_view> segments(std::string_view path, std::string_view separators) {
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    for (;;) {
        const std::size_t end = path.find_first_of(separators, start);
        parts.push_back(path.substr(start, end == std::string_view::npos ? end : end - start));
        if (end == std::string_view::npos) return parts;
        start = end + 1;
    }
}

}  // namespace

std::string fileNameProblem(const std::string& name) {
    if (name.empty()) return "File name is empty";
    // The name is also the last segment of a download URL, where "%2E%2E" means "..".
    const std::string decoded = withDotsDecoded(name);
    if (decoded == "." || decoded == "..") return "File name is a folder reference: " + name;
    if (hasControlCharacter(name)) return "File name holds a control character";
    // '#' is allowed by Windows, but in a download URL it would end the path.
    if (name.find_first_of("/\\:<>\"|?*#") != std::string::npos) return "File name is not a plain file name: " + name;
    if (name.back() == '.' || name.back() == ' ') return "File name ends in a dot or blank: " + name;
    if (isDeviceName(name)) return "File name is a device name: " + name;
    return {};
}

std::string targetPathProblem(const std::string& targetPath) {
    if (targetPath.empty()) return "Target path is empty";
    if (targetPath.front() == '/' || targetPath.front() == '\\') return "Target path is absolute: " + targetPath;
    if (targetPath.find(':') != std::string::npos) return "Target path names a drive or stream: " + targetPath;
    for (const std::string_view segment : segments(targetPath, "/\\")) {
        if (segment == "..") return "Target path leaves the installation folder: " + targetPath;
        if (segment.empty() || segment == ".") continue;
        if (!fileNameProblem(std::string(segment)).empty()) return "Target path has a bad segment: " + targetPath;
    }
    const char last = targetPath.back();
    if (last == '/' || last == '\\' || segments(targetPath, "/\\").back() == ".") {
        return "Target path names no file: " + targetPath;
    }
    return {};
}

bool isHttpUrl(const std::string& url) { return url.starts_with("http://") || url.starts_with("https://"); }

std::string urlPathProblem(const std::string& url) {
    if (hasControlCharacter(url)) return "File URL holds a control character";
    // Read as the download reads it: anything not absolute, "://" included, is a path below a base.
    const bool absolute = isHttpUrl(url);
    const std::size_t scheme = url.find("://");
    const std::size_t pathStart = absolute ? url.find('/', scheme + 3) : 0;
    if (pathStart == std::string::npos) return {};
    const std::string_view path = std::string_view(url).substr(pathStart, url.find_first_of("?#", pathStart) - pathStart);
    for (const std::string_view segment : segments(path, "/\\")) {
        if (withDotsDecoded(segment) == "..") return "File URL leaves its base: " + url;
    }
    return {};
}

}  // namespace velk::updater
