#include "release/path_rules.hpp"

#include <gtest/gtest.h>

#include <string>

namespace velk::updater {
namespace {

struct Row {
    std::string text;
    bool allowed;
};

// Names reaching outside the folder or a device on some system, next to ordinary release names.
TEST(ArbitraryInstallation, FileNamesMustBePlain) {
    const Row rows[] = {
        {"VELK.dll", true},        {"VELK_Sys_x64.sys", true}, {"libcurl.dll", true},  {".hidden", true},
        {"", false},               {".", false},               {"..", false},          {"../x", false},
        {"sub/x", false},          {"sub\\x", false},          {"C:x", false},         {"x:stream", false},
        {"a\nb", false},           {std::string("a\0b", 3), false}, {"x.", false},     {"x ", false},
        {"CON", false},            {"nul.dll", false},         {"Com1.txt", false},    {"lpt9", false},
        {"COM10", true},           {"CONSOLE.dll", true},      {"a|b", false},         {"a*b", false},
        // The name is also a URL's last segment: these would ask the server for its parent.
        {".%2E", false},           {"%2e%2e", false},          {"..#x", false},        {"100%.dll", true},
    };
    for (const Row& row : rows) EXPECT_EQ(fileNameProblem(row.text).empty(), row.allowed) << row.text;
}

TEST(ArbitraryInstallation, TargetPathsStayInsideTheInstallationFolder) {
    const Row rows[] = {
        {"VELK.dll", true},         {"drivers/VELK_Sys.sys", true}, {"drivers\\VELK_Sys.sys", true},
        {"./VELK.dll", true},       {"", false},                    {"../../x", false},
        {"sub/../../x", false},     {"sub\\..\\x", false},          {"/etc/passwd", false},
        {"\\Windows\\x.dll", false}, {"C:\\Windows\\x.dll", false}, {"C:x.dll", false},
        {"\\\\server\\share\\x", false}, {"//server/share/x", false}, {"sub/", false},
        {"sub/.", false},           {"sub/CON/x", false},           {"VELK.dll:ads", false},
    };
    for (const Row& row : rows) EXPECT_EQ(targetPathProblem(row.text).empty(), row.allowed) << row.text;
}

TEST(ArbitraryInstallation, DownloadUrlsStayBelowTheirBase) {
    const Row rows[] = {
        {"files/VELK.dll", true},   {"https://cdn.example/files/VELK.dll", true}, {"VELK.dll?v=..", true},
        {"../VELK.dll", false},     {"files/../../etc/x", false}, {"https://cdn.example/a/%2e%2E/x", false},
        {"files/.%2e/x", false},    {"files\\..\\x", false},      {"files/x\r\nHost: evil", false},
        // Not a leading http(s) scheme: the whole text is a path relative to the base.
        {"../https://h/x", false}, {"ftp://../x", false},
    };
    for (const Row& row : rows) EXPECT_EQ(urlPathProblem(row.text).empty(), row.allowed) << row.text;
}

}  // namespace
}  // namespace velk::updater
