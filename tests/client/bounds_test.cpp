// What a hostile update server sends is bounded: a manifest in memory, an updater file on
// disk, each by its own limit, and the run goes on or ends cleanly.
#include "client_fixture.hpp"

namespace velk::updater {
namespace {

using nlohmann::json;

constexpr std::uint64_t kWellBelowEndless = 64u * 1024 * 1024;

class BoundsTest : public ClientTest {};

TEST_F(BoundsTest, EndlessDataAsTheManifestIsCutOffInMemory) {
    server_.setEndless("/update/manifest.json");
    EXPECT_FALSE(client().checkForUpdates(server_.url("/update/manifest.json")));
    EXPECT_TRUE(log_.contains("[ERROR] Failed to download manifest from " + server_.url("/update/manifest.json") +
                              ": Response larger than the expected " + std::to_string(HttpConfig{}.maxBodyBytes) +
                              " bytes"));
    EXPECT_LT(server_.endlessBytesSent(), kWellBelowEndless);

    const fs::path huge = tmp_.path() / "huge.json";
    test::writeFile(huge, "");
    fs::resize_file(huge, HttpConfig{}.maxBodyBytes + 1);
    EXPECT_FALSE(client().checkForUpdatesFromFile(huge.string()));
    EXPECT_TRUE(log_.contains("[ERROR] Failed to read manifest file: larger than " +
                              std::to_string(HttpConfig{}.maxBodyBytes) + " bytes"));
}

TEST_F(BoundsTest, EndlessDataAsAnUpdaterFileStopsAtItsSizeAndLeavesNothing) {
    json lib = publish("libcurl.dll", "curl bytes");
    lib["url"] = server_.url("/direct/libcurl.dll");
    server_.setEndless("/direct/libcurl.dll");
    EXPECT_TRUE(client().performUpdate(*parseManifest(manifest("2.0.0", "1", {lib}))));
    EXPECT_TRUE(log_.contains("[ERROR] Failed to download libcurl.dll: HTTP 0"));
    EXPECT_LT(server_.endlessBytesSent(), kWellBelowEndless);
    EXPECT_FALSE(fs::exists(installDir() / "libcurl.dll_temp"));
    EXPECT_FALSE(fs::exists(installDir() / "libcurl.dll_temp.partial"));
}

}  // namespace
}  // namespace velk::updater
