#include "delivery/url_candidates.hpp"

#include <gtest/gtest.h>

namespace velk::updater {
namespace {

// The candidates, each followed by "|", an archive marked " [zip]".
std::string candidates(const std::vector<std::string>& bases, bool archiveFirst, const std::string& url,
                       const std::string& name) {
    UrlCandidateGenerator generator(bases, archiveFirst);
    generator.reset(url, name);
    std::string urls;
    std::string next;
    bool archive = false;
    std::size_t count = 0;
    for (; generator.next(next, archive); ++count) urls += next + (archive ? " [zip]|" : "|");
    EXPECT_EQ(generator.attemptedUrls().size(), count);
    return urls;
}

TEST(UrlText, SplitAndJoin) {
    EXPECT_EQ(splitUrl("https://h:1/a/b.dll"), std::make_pair(std::string("https://h:1"), std::string("/a/b.dll")));
    EXPECT_EQ(splitUrl("https://h:1"), std::make_pair(std::string("https://h:1"), std::string("/")));
    EXPECT_EQ(splitUrl("files/a.dll"), std::make_pair(std::string(""), std::string("files/a.dll")));
    EXPECT_EQ(directoryPart("a/b/c.dll"), "a/b/");
    EXPECT_EQ(directoryPart("c.dll"), "");
    EXPECT_EQ(fileNamePart("a/b/c.dll"), "c.dll");
    EXPECT_EQ(fileNamePart("a/b/"), "");
    EXPECT_EQ(trimSlashes("//a/b//"), "a/b");
    EXPECT_EQ(trimSlashes("///"), "");
    EXPECT_EQ(joinUrlPath("http://b/", "/x"), "http://b/x");
    EXPECT_EQ(joinUrlPath("http://b", "x"), "http://b/x");
    EXPECT_EQ(joinUrlPath("http://b/", "x"), "http://b/x");
    EXPECT_EQ(joinUrlPath("", "x"), "x");
    EXPECT_EQ(joinUrlPath("a", ""), "a");
}

// Archive and plain file at every base in turn; an absolute URL keeps only its path, a relative
// one its folder with the entry's name; without a file name or a base nothing is requested.
TEST(UrlCandidates, EveryBaseInTurnWithTheEntrysPath) {
    const struct { std::vector<std::string> bases; bool archiveFirst; std::string url, name, expected; } rows[] = {
        {{"http://cdn/", "http://mirror"}, true, "files/VELK.dll", "VELK.dll",
         "http://cdn/files/VELK.dll.zip [zip]|http://cdn/files/VELK.dll|http://mirror/files/VELK.dll.zip [zip]|http://mirror/files/VELK.dll|"},
        {{"http://cdn"}, false, "files/VELK.dll", "VELK.dll", "http://cdn/files/VELK.dll|http://cdn/files/VELK.dll.zip [zip]|"},
        {{"http://cdn/base/"}, true, "https://elsewhere:8443/x/y/VELK.dll", "ignored.dll",
         "http://cdn/base/x/y/VELK.dll.zip [zip]|http://cdn/base/x/y/VELK.dll|"},
        {{"http://cdn"}, true, "https://elsewhere", "VELK.dll", ""},
        {{"http://cdn"}, true, "https://elsewhere/dir/", "VELK.dll", ""},
        {{"http://cdn/"}, false, "/dir/VELK.dll", "", "http://cdn/dir/VELK.dll|http://cdn/dir/VELK.dll.zip [zip]|"},
        {{"http://cdn"}, false, "dir/old-name.dll", "VELK.dll", "http://cdn/dir/VELK.dll|http://cdn/dir/VELK.dll.zip [zip]|"},
        {{}, true, "files/VELK.dll", "VELK.dll", ""},
    };
    for (const auto& row : rows) EXPECT_EQ(candidates(row.bases, row.archiveFirst, row.url, row.name), row.expected) << row.url;
}

}  // namespace
}  // namespace velk::updater
