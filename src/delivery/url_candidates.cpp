#include "delivery/url_candidates.hpp"

#include "release/path_rules.hpp"

namespace velk::updater {

std::pair<std::string, std::string> splitUrl(const std::string& url) {
    const auto scheme = url.find("://");
    if (scheme == std::string::npos) return {"", url};
    const auto slash = url.find('/', scheme + 3);
    if (slash == std::string::npos) return {url, "/"};
    return {url.substr(0, slash), url.substr(slash)};
}

std::string directoryPart(const std::string& text) {
    const auto slash = text.rfind('/');
    return slash == std::string::npos ? std::string() : text.substr(0, slash + 1);
}

std::string fileNamePart(const std::string& text) {
    const auto slash = text.rfind('/');
    return slash == std::string::npos ? text : text.substr(slash + 1);
}

std::string trimSlashes(const std::string& text) {
    const auto first = text.find_first_not_of('/');
    if (first == std::string::npos) return {};
    return text.substr(first, text.find_last_not_of('/') - first + 1);
}

std::string joinUrlPath(const std::string& a, const std::string& b) {
    if (a.empty()) return b;
    if (b.empty()) return a;
    const bool slashA = a.back() == '/';
    const bool slashB = b.front() == '/';
    if (slashA && slashB) return a + b.substr(1);
    if (!slashA && !slashB) return a + "/" + b;
    return a + b;
}

UrlCandidateGenerator::UrlCandidateGenerator(std::vector<std::string> baseUrls, bool archiveFirst)
    : baseUrls_(std::move(baseUrls)), archiveFirst_(archiveFirst) {}

void UrlCandidateGenerator::reset(const std::string& entryUrl, const std::string& entryName) {
    attempted_.clear();
    baseIndex_ = 0;
    form_ = 0;
    if (isHttpUrl(entryUrl)) {
        // Only the path of an absolute URL is used; its host is replaced by every base.
        const std::string path = splitUrl(entryUrl).second;
        relativeDirectory_ = directoryPart(path);
        fileName_ = fileNamePart(path);
    } else {
        relativeDirectory_ = directoryPart(entryUrl);
        fileName_ = entryName.empty() ? fileNamePart(entryUrl) : entryName;
    }
}

bool UrlCandidateGenerator::next(std::string& url, bool& isArchive) {
    if (baseUrls_.empty() || fileName_.empty() || baseIndex_ >= baseUrls_.size()) return false;
    isArchive = form_ == 0 ? archiveFirst_ : !archiveFirst_;
    const std::string requested = isArchive ? fileName_ + ".zip" : fileName_;
    url = joinUrlPath(baseUrls_[baseIndex_], trimSlashes(joinUrlPath(relativeDirectory_, requested)));
    attempted_.push_back(url);
    if (++form_ == 2) {
        form_ = 0;
        ++baseIndex_;
    }
    return true;
}

}  // namespace velk::updater
