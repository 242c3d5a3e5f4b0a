#include "delivery/url_candidates.hpp"

#include <gtest/gtest.h>

namespace velk::updater {
namespace {

std::vector<std::string> candidates(const std::vector<std::string>& bases, bool archiveFirst, const std::string& url,
                                    const std::string& name) {
    UrlCandidateGenerator generator(bases, archiveFirst);
    generator.reset(url, name);
    std::vector<std::string> urls;
    std::string next;
    bool archive = false;
    while (generator.next(next, archive)) {
        urls.push_back(next + (archive ? " [zip]" : ""));
    }
    EXPECT_EQ(generator.attemptedUrls().size(), urls.size());
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

TEST(UrlCandidates, ArchiveFirstThenPlainAtEveryBase) {
    EXPECT_EQ(candidates({"http://cdn/", "http://mirror"}, true, "files/VELK.dll", "VELK.dll"),
              (std::vector<std::string>{"http://cdn/files/VELK.dll.zip [zip]", "http://cdn/files/VELK.dll",
                                        "http://mirror/files/VELK.dll.zip [zip]", "http://mirror/files/VELK.dll"}));
    EXPECT_EQ(candidates({"http://cdn"}, false, "files/VELK.dll", "VELK.dll"),
              (std::vector<std::string>{"http://cdn/files/VELK.dll", "http://cdn/files/VELK.dll.zip [zip]"}));
}

TEST(UrlCandidates, AbsoluteUrlsKeepOnlyTheirPath) {
    EXPECT_EQ(candidates({"http://cdn/base/"}, true, "https://elsewhere:8443/x/y/VELK.dll", "ignored.dll"),
              (std::vector<std::string>{"http://cdn/base/x/y/VELK.dll.zip [zip]", "http://cdn/base/x/y/VELK.dll"}));
    // No file name after the split: nothing to request.
    EXPECT_TRUE(candidates({"http://cdn"}, true, "https://elsewhere", "VELK.dll").empty());
    EXPECT_TRUE(candidates({"http://cdn"}, true, "https://elsewhere/dir/", "VELK.dll").empty());
}

TEST(UrlCandidates, RelativeUrlsUseTheEntryName) {
    EXPECT_EQ(candidates({"http://cdn/"}, false, "/dir/VELK.dll", ""),
              (std::vector<std::string>{"http://cdn/dir/VELK.dll", "http://cdn/dir/VELK.dll.zip [zip]"}));
    EXPECT_EQ(candidates({"http://cdn"}, false, "dir/old-name.dll", "VELK.dll"),
              (std::vector<std::string>{"http://cdn/dir/VELK.dll", "http://cdn/dir/VELK.dll.zip [zip]"}));
    EXPECT_TRUE(candidates({}, true, "files/VELK.dll", "VELK.dll").empty());
}

}  // namespace
}  // namespace velk::updater
