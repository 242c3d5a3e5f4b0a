#include <nlohmann/json.hpp>

#include "e2e_fixture.hpp"

namespace velk::test {
namespace {

using nlohmann::json;

// VELK_Updater_pinned_test trusts the vendor keys in keys/ only; the attacker controls the
// update site and can publish whatever manifest it likes.
class PinnedUpdaterTest : public EndToEndTest {
protected:
    static std::string key(const std::string& name) { return (fs::path(VELK_TEST_KEYS_DIR) / name).string(); }

    ProcessResult runPinned(const std::vector<std::string>& args) { return run(args, {}, "VELK_Updater_pinned_test"); }

    // Edits the published manifest as an attacker on the site would.
    void rewriteManifest(const std::function<void(json&)>& edit) {
        json document = json::parse(readFile(site() / "manifest.json"));
        edit(document);
        writeFile(site() / "manifest.json", document.dump(2));
    }

    void freshInstallation(const std::string& registryValues = "") {
        fs::remove_all(installDir());
        productKey("\"InstallPath\"=\"" + installDir().string() + "\"\n" + registryValues);
    }
};
using KeySubstitution = PinnedUpdaterTest;
using Rollback = PinnedUpdaterTest;

TEST_F(KeySubstitution, PinnedUpdaterInstallsOnlyReleasesSignedByThePinnedKeys) {
    struct Case {
        std::string what;
        std::vector<std::string> signing;  // publisher arguments; none: a key of the attacker's
        std::function<void(json&)> edit;   // the attacker's change to the signed manifest, if any
        bool installed;
        std::string logLine;
    };
    const std::vector<Case> cases{
        {"vendor's Ed25519 key", {"--sign-ed25519", key("vendor_ed25519.seed")}, nullptr, true,
         "[INFO] Signature verified successfully using Ed25519"},
        {"vendor's RSA key", {"--sign-rsa", key("vendor_rsa.pem")}, nullptr, true,
         "[INFO] Signature verified successfully using RSA-SHA256"},
        {"unsigned", {}, [](json& d) { d["signature"]["signature"] = "c2ln"; }, false,
         "[ERROR] Signature verification failed: Invalid signature size"},
        {"attacker's Ed25519 key", {}, nullptr, false,
         "[ERROR] Signature verification failed: Signature verification failed"},
        {"attacker's RSA key named in the manifest", {"--sign-rsa", key("attacker_rsa.pem")}, nullptr, false,
         "[ERROR] RSA public key in manifest is not the pinned release key"},
        {"vendor-signed, a file swapped", {"--sign-ed25519", key("vendor_ed25519.seed")},
         [](json& d) { d["manifest"]["files"][0]["sha256"] = std::string(64, 'e'); }, false,
         "[ERROR] Signature verification failed: Signature verification failed"},
    };
    startServer();
    for (const Case& c : cases) {
        freshInstallation();
        publish("1.0.0", "100", kRelease1, c.signing);
        if (c.edit) rewriteManifest(c.edit);
        const ProcessResult result = runPinned({});
        EXPECT_EQ(result.exitCode, 0) << c.what << ": " << result.err;
        EXPECT_EQ(fs::exists(installDir() / "VELK.dll"), c.installed) << c.what;
        EXPECT_TRUE(logged(c.logLine)) << c.what;
        EXPECT_EQ(logged("[ERROR] Manifest verification failed: Signature verification failed"), !c.installed)
            << c.what;
    }
}

TEST_F(Rollback, PinnedUpdaterRefusesAnOlderSignedReleaseUnlessForced) {
    freshInstallation("\"Version\"=\"10.0.0\"\n\"BuildNumber\"=\"5\"\n");
    publish("9.0.0", "4", kRelease1, {"--sign-ed25519", key("vendor_ed25519.seed")});
    startServer();
    ASSERT_EQ(runPinned({}).exitCode, 0);
    EXPECT_TRUE(logged("[ERROR] Manifest verification failed: Rollback refused"));
    EXPECT_FALSE(fs::exists(installDir() / "VELK.dll"));

    ASSERT_EQ(runPinned({"--force"}).exitCode, 0);
    EXPECT_EQ(readFile(installDir() / "VELK.dll"), kRelease1.at("VELK.dll"));
    EXPECT_NE(registryText().find("\"Version\"=\"9.0.0\""), std::string::npos);
}

}  // namespace
}  // namespace velk::test
