#include "client_fixture.hpp"

namespace velk::updater {
namespace {

using nlohmann::json;

class ContainmentTest : public ClientTest {
protected:
    fs::path outside() const { return root() / "outside"; }
    void SetUp() override {
        ClientTest::SetUp();
        test::writeFile(outside() / "victim", "precious");
    }
};

// The entry's size is wrong for the victim, so a check would delete it.
TEST_F(ContainmentTest, ArbitraryDeletionThroughALinkedFolderIsRefused) {
    fs::create_directory_symlink(outside(), install_ / "linked");
    json entry = publish("VELK.dll", "new library");
    entry["target_path"] = "linked/victim";
    EXPECT_FALSE(client().processManifest(manifest("2.0.0", "1", {entry})));
    // Neither the integrity pass nor the installation went through the link.
    EXPECT_EQ(test::readFile(outside() / "victim"), "precious");
    EXPECT_FALSE(fs::exists(outside() / "victim.staging"));
    EXPECT_EQ(getInstalledVersion(), "1.0.0");
}

// Another account may plant files or links in the shared temporary folder: downloads avoid it.
TEST_F(ContainmentTest, PlantedDownloadFile) {
    const std::vector<std::string> names = {"VELK.dll.tmp", "VELK.dll.tmp.zip", "VELK.dll.tmp.partial"};
    for (const auto& name : names) {
        test::writeFile(tmp_.path() / name, "attacker's bytes");
        fs::create_symlink(outside() / "victim", tmp_.path() / ("link-" + name));
    }
    fs::create_symlink(outside() / "planted", tmp_.path() / "VELK.dll");
    json entry = publish("VELK.dll", "new library");
    EXPECT_TRUE(client().processManifest(manifest("2.0.0", "1", {entry})));
    EXPECT_EQ(test::readFile(install_ / "VELK.dll"), "new library");
    for (const auto& name : names) EXPECT_EQ(test::readFile(tmp_.path() / name), "attacker's bytes") << name;
    EXPECT_EQ(test::readFile(outside() / "victim"), "precious");
    EXPECT_FALSE(fs::exists(outside() / "planted"));
    EXPECT_EQ(fs::status(downloads()).permissions() & fs::perms::mask, fs::perms::owner_all);
}

}  // namespace
}  // namespace velk::updater
