#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

// Download candidates: for every base URL, the file's zip archive and the plain file.
namespace velk::updater {

// Origin and path of a URL: the path starts with "/", or is the whole text when there
// is no "://".
std::pair<std::string, std::string> splitUrl(const std::string& url);
std::string directoryPart(const std::string& text);
std::string fileNamePart(const std::string& text);
std::string trimSlashes(const std::string& text);
// Joins with exactly one "/" between non-empty parts.
std::string joinUrlPath(const std::string& a, const std::string& b);

class UrlCandidateGenerator {
public:
    UrlCandidateGenerator(std::vector<std::string> baseUrls, bool archiveFirst);

    // Starts over for an entry's "url" and "name".
    void reset(const std::string& entryUrl, const std::string& entryName);
    // The next URL and whether it names an archive; false when none is left.
    bool next(std::string& url, bool& isArchive);
    const std::vector<std::string>& attemptedUrls() const { return attempted_; }

private:
    std::vector<std::string> baseUrls_;
    bool archiveFirst_;
    std::string relativeDirectory_;
    std::string fileName_;
    std::uint64_t baseIndex_ = 0;
    std::int32_t form_ = 0;
    std::vector<std::string> attempted_;
};

}  // namespace velk::updater
