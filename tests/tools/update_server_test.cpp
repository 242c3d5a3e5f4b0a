#include <gtest/gtest.h>
#include <httplib.h>

#include "support/process_runner.hpp"
#include "support/test_support.hpp"

namespace velk::test {
namespace {

class UpdateServerTest : public ::testing::Test {
protected:
    UpdateServerTest() {
        writeFile(dir_ / "site" / "manifest.json", "{}");
        writeFile(dir_ / "site" / "files" / "VELK.dll", std::string(100000, 'v'));
    }
    TempDir dir_;
};

TEST_F(UpdateServerTest, ServesEveryPrefixFromTheRootAndLogsRequests) {
    const std::string log = (dir_ / "requests.log").string();
    UpdateServer server((dir_ / "site").string(), {"--log", log});
    httplib::Client client("127.0.0.1", server.port());
    // One connection: the server logs a request before it reads the next one.
    client.set_keep_alive(true);
    EXPECT_EQ(client.Get("/update/manifest.json")->body, "{}");
    for (const char* path : {"/cdn/files/VELK.dll", "/mirror/files/VELK.dll", "/origin/files/VELK.dll",
                             "/files/VELK.dll"}) {
        const auto response = client.Get(path);
        ASSERT_TRUE(response) << path;
        EXPECT_EQ(response->status, 200) << path;
        EXPECT_EQ(response->body.size(), 100000u) << path;
    }
    EXPECT_EQ(client.Get("/cdn/files/absent.dll")->status, 404);
    EXPECT_EQ(client.Get("/cdn/%2e%2e/requests.log")->status, 404);
    EXPECT_NE(readFile(log).find("GET /cdn/files/absent.dll 404"), std::string::npos);
}

TEST_F(UpdateServerTest, RulesInjectStatusesShortBodiesAndStalls) {
    const fs::path rules = dir_ / "rules.txt";
    writeFile(rules, "/mirror/ 503\n");
    UpdateServer server((dir_ / "site").string(),
                        {"--rule", "/cdn/=404", "--rule", "/files/VELK.dll=short", "--rules", rules.string(),
                         "--rule", "/origin/files/VELK.dll=stall", "--stall-seconds", "1"});
    httplib::Client client("127.0.0.1", server.port());
    EXPECT_EQ(client.Get("/cdn/files/VELK.dll")->status, 404);
    EXPECT_EQ(client.Get("/mirror/files/VELK.dll")->status, 503);
    EXPECT_FALSE(client.Get("/files/VELK.dll"));    // connection closed before the length
    EXPECT_FALSE(client.Get("/origin/files/VELK.dll"));  // stalls, then closes

    writeFile(rules, "");  // read again on every request
    EXPECT_EQ(client.Get("/mirror/files/VELK.dll")->status, 200);
}

}  // namespace
}  // namespace velk::test
