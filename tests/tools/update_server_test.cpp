#include <gtest/gtest.h>
#include <httplib.h>

#include "support/process_runner.hpp"
#include "support/test_support.hpp"

namespace velk::test {
namespace {

// Every prefix serves the site's root and nothing above it; a command-line rule answers for one
// path, or with a trailing "/" for every path below it. (Its other answers work in the e2e tests.)
TEST(UpdateServerTest, PrefixesServeTheRootAndCommandLineRulesAnswerInstead) {
    TempDir dir;
    writeFile(dir / "site" / "manifest.json", "{}");
    writeFile(dir / "site" / "files" / "VELK.dll", std::string(100000, 'v'));
    writeFile(dir / "secret.txt", "outside the site");
    UpdateServer server((dir / "site").string(), {"--rule", "/cdn/=404", "--rule", "/mirror/files/VELK.dll=503"});
    httplib::Client client("127.0.0.1", server.port());
    for (const auto& [path, status] : std::vector<std::pair<std::string, int>>{
             {"/update/manifest.json", 200},
             {"/origin/files/VELK.dll", 200},
             {"/files/VELK.dll", 200},
             {"/mirror/manifest.json", 200},
             {"/cdn/files/VELK.dll", 404},
             {"/mirror/files/VELK.dll", 503},
             {"/origin/files/absent.dll", 404},
             {"/origin/%2e%2e/secret.txt", 404},
         }) {
        const auto response = client.Get(path);
        ASSERT_TRUE(response) << path;
        EXPECT_EQ(response->status, status) << path;
    }
    EXPECT_EQ(client.Get("/origin/files/VELK.dll")->body, std::string(100000, 'v'));
}

}  // namespace
}  // namespace velk::test
