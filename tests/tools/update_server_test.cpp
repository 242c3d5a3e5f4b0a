#include <gtest/gtest.h>
#include <httplib.h>

#include "support/process_runner.hpp"
#include "support/test_support.hpp"

namespace velk::test {
namespace {

// Nothing above the site's root; a rule ending in "/" answers for every path below it.
TEST(UpdateServerTest, PrefixesServeTheRootAndCommandLineRulesAnswerInstead) {
    TempDir dir;
    writeFile(dir / "site" / "manifest.json", "{}");
    writeFile(dir / "site" / "files" / "VELK.dll", std::string(100000, 'v'));
    writeFile(dir / "secret.txt", "outside the site");
    const std::vector<std::string> args{"--root", (dir / "site").string(), "--port", "0", "--rule", "/cdn/=404",
                                        "--rule", "/mirror/files/VELK.dll=503"};
    BackgroundProcess server(builtProgram("velk_update_server"), args);
    const std::string listening = server.readLine();  // "... listening on http://127.0.0.1:<port>"
    httplib::Client client("127.0.0.1", std::stoi(listening.substr(listening.rfind(':') + 1)));
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
