#include "release/manifest_verifier.hpp"
#include "release/signed_text.hpp"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/x509.h>
#include <sodium.h>

#include <functional>
#include <nlohmann/json.hpp>

#include "crypto/crypto_utils.hpp"
#include "support/log_capture.hpp"

namespace velk::updater {
namespace {

using nlohmann::json;

std::string base64(const std::string& bytes) {
    std::string text(sodium_base64_encoded_len(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
    sodium_bin2base64(text.data(), text.size(), reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(),
                      sodium_base64_VARIANT_ORIGINAL);
    text.resize(text.size() - 1);
    return text;
}

// Two files, and a placeholder signature record that signs nothing.
json document(const std::string& version, const std::string& build = "1234", const std::string& minimum = "") {
    json doc{{"manifest",
              {{"version", version},
               {"build_number", build},
               {"git_commit", "abc123"},
               {"expires", "2200-01-01T00:00:00Z"},
               {"files",
                {{{"name", "VELK.dll"}, {"url", "files/VELK.dll"}, {"size", 42}, {"sha256", "d00d"}, {"target_path", "VELK.dll"}},
                 {{"name", "VELK_Launcher.exe"}, {"url", "files/L.exe"}, {"size", 7}, {"sha256", "beef"}, {"target_path", "VELK_Launcher.exe"}}}}}},
             {"signature", {{"algorithm", "Ed25519"}, {"public_key", "a2V5"}, {"signature", "c2ln"}}}};
    if (!minimum.empty()) doc["manifest"]["minimum_version"] = minimum;
    return doc;
}

// A release signing key as its owner holds it; keys and signatures in base64.
struct SigningKey {
    std::string algorithm;
    std::string publicKey;
    std::function<std::string(const std::string&)> sign;
};

SigningKey ed25519Key() {
    std::string publicKey(crypto_sign_PUBLICKEYBYTES, '\0'), secret(crypto_sign_SECRETKEYBYTES, '\0');
    crypto_sign_keypair(reinterpret_cast<unsigned char*>(publicKey.data()), reinterpret_cast<unsigned char*>(secret.data()));
    return {"Ed25519", base64(publicKey), [secret](const std::string& message) {
                std::string signature(crypto_sign_BYTES, '\0');
                crypto_sign_detached(reinterpret_cast<unsigned char*>(signature.data()), nullptr,
                                     reinterpret_cast<const unsigned char*>(message.data()), message.size(),
                                     reinterpret_cast<const unsigned char*>(secret.data()));
                return base64(signature);
            }};
}

SigningKey rsaKey() {
    std::shared_ptr<EVP_PKEY> key(EVP_RSA_gen(2048), EVP_PKEY_free);
    unsigned char* der = nullptr;
    const int length = i2d_PUBKEY(key.get(), &der);
    const std::string publicKey(reinterpret_cast<char*>(der), static_cast<std::size_t>(length));
    OPENSSL_free(der);
    return {"RSA-SHA256", base64(publicKey), [key](const std::string& message) {
                std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
                const auto* bytes = reinterpret_cast<const unsigned char*>(message.data());
                std::size_t size = 0;
                EVP_DigestSignInit(ctx.get(), nullptr, EVP_sha256(), nullptr, key.get());
                EVP_DigestSign(ctx.get(), nullptr, &size, bytes, message.size());
                std::string signature(size, '\0');
                EVP_DigestSign(ctx.get(), reinterpret_cast<unsigned char*>(signature.data()), &size, bytes, message.size());
                return base64(signature);
            }};
}

// A vendor with pinned Ed25519 and RSA keys, and an attacker with keys of its own.
class VerifierTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        ASSERT_GE(sodium_init(), 0);
        vendor_ = ed25519Key();
        vendorRsa_ = rsaKey();
        attacker_ = ed25519Key();
        attackerRsa_ = rsaKey();
    }
    void SetUp() override { ASSERT_TRUE(CryptoUtils::initialize()); }
    void TearDown() override { CryptoUtils::cleanup(); }

    ManifestVerifier make(ManifestVerifierConfig config) { return ManifestVerifier(config, log_.logger()); }
    static ManifestVerifierConfig installed(const std::string& version, const std::string& build, bool allowDowngrades) {
        ManifestVerifierConfig config;
        config.currentVersion = version;
        config.currentBuildNumber = build;
        config.allowDowngrades = allowDowngrades;
        return config;
    }

    // `doc` signed by `signer` over the product's own signed text, naming `named` as its key.
    static json signedBy(const SigningKey& signer, const SigningKey& named, json doc = document("2.1.0")) {
        const std::string message = signedManifestText(*parseManifest(doc.dump()));
        doc["signature"] = {{"algorithm", signer.algorithm}, {"public_key", named.publicKey}, {"signature", signer.sign(message)}};
        return doc;
    }
    // `doc` signed by each of `signers` in turn, as a publisher with several keys writes it.
    static json signedByAll(const std::vector<SigningKey>& signers, json doc = document("2.1.0")) {
        const std::string message = signedManifestText(*parseManifest(doc.dump()));
        doc["signatures"] = json::array();
        for (const SigningKey& signer : signers) {
            doc["signatures"].push_back({{"algorithm", signer.algorithm}, {"public_key", signer.publicKey},
                                         {"signature", signer.sign(message)}});
        }
        doc["signature"] = doc["signatures"][0];
        return doc;
    }
    static ManifestVerifierConfig pinning(const std::vector<SigningKey>& keys, std::uint32_t threshold = 1) {
        ManifestVerifierConfig config = installed("2.0.0", "1", true);
        for (const SigningKey& key : keys) config.publicKeys.push_back(key.publicKey);
        config.threshold = threshold;
        return config;
    }
    // The error of verifying `doc` under `config`: empty when it was accepted.
    std::string refusal(const ManifestVerifierConfig& config, const json& doc) {
        return make(config).parseAndVerify(doc.dump()).errorMessage;
    }

    struct Case {
        std::string what;
        json document;
        std::string pinnedEd25519;
        std::string pinnedRsa;
        bool accepted;
        std::string logLine;
    };
    void expectVerdicts(const std::vector<Case>& cases) {
        for (const Case& c : cases) {
            ManifestVerifierConfig config = installed("2.0.0", "1", true);
            if (!c.pinnedEd25519.empty()) config.publicKeys = {c.pinnedEd25519};
            config.rsaPublicKey = c.pinnedRsa;
            log_.clear();
            const VerificationResult result = make(config).parseAndVerify(c.document.dump());
            EXPECT_EQ(result.valid, c.accepted) << c.what;
            EXPECT_EQ(result.errorMessage, c.accepted ? "" : "Signature verification failed") << c.what;
            EXPECT_TRUE(log_.contains(c.logLine)) << c.what << ": " << ::testing::PrintToString(log_.lines());
        }
    }

    test::LogCapture log_;
    static inline SigningKey vendor_, vendorRsa_, attacker_, attackerRsa_;
};
using FreezeAttack = VerifierTest;
using WrongChannel = VerifierTest;
using KeyCompromise = VerifierTest;
using KeySubstitution = VerifierTest;
using UnsignedManifest = VerifierTest;
using TamperedManifest = VerifierTest;
using Rollback = VerifierTest;

// Every signed field carries its length, so no value can be moved into its neighbour.
TEST(SignedText, IsTheFixedListOfLengthPrefixedFields) {
    json doc = document("2.1.0");
    doc["manifest"]["rollout_percentage"] = 25;
    EXPECT_EQ(signedManifestText(*parseManifest(doc.dump())),
              "VELK signed manifest 2\n"
              "version 5 2.1.0\n"
              "build_number 4 1234\n"
              "git_commit 6 abc123\n"
              "channel 6 stable\n"
              "expires 20 2200-01-01T00:00:00Z\n"
              "rollout_percentage 2 25\n"
              "name 8 VELK.dll\nsha256 4 d00d\nsize 2 42\n"
              "name 17 VELK_Launcher.exe\nsha256 4 beef\nsize 1 7\n");
    json shifted = doc;
    shifted["manifest"]["version"] = "2.1.01";
    shifted["manifest"]["build_number"] = "234";
    EXPECT_NE(signedManifestText(*parseManifest(shifted.dump())), signedManifestText(*parseManifest(doc.dump())));
}

// A mirror that keeps serving an old signed manifest would hide every later release.
TEST_F(FreezeAttack, ExpiredOrUndatedManifestIsRefusedByAPinnedBuild) {
    const ManifestVerifierConfig pinned = pinning({vendor_});
    json expired = document("2.1.0"), undated = document("2.1.0"), unreadable = document("2.1.0");
    expired["manifest"]["expires"] = "2001-01-01T00:00:00Z";
    undated["manifest"].erase("expires");
    unreadable["manifest"]["expires"] = "next year";
    EXPECT_EQ(refusal(pinned, signedBy(vendor_, vendor_, expired)), "Manifest expired on 2001-01-01T00:00:00Z");
    EXPECT_EQ(refusal(pinned, signedBy(vendor_, vendor_, undated)), "Manifest has no expiry");
    EXPECT_EQ(refusal(pinned, signedBy(vendor_, vendor_, unreadable)), "Manifest expired on next year");
    EXPECT_EQ(refusal(pinned, signedBy(vendor_, vendor_)), "");
    // The expiry is signed: moving it forward breaks the signature.
    json extended = signedBy(vendor_, vendor_, expired);
    extended["manifest"]["expires"] = "2200-01-01T00:00:00Z";
    EXPECT_EQ(refusal(pinned, extended), "Signature verification failed");
    // A build without a key cannot tell a real expiry from a forged one and reads old manifests.
    EXPECT_EQ(refusal(installed("2.0.0", "1", true), undated), "");
}

TEST_F(WrongChannel, ManifestSignedForAnotherChannelIsRefused) {
    json beta = document("2.1.0");
    beta["manifest"]["channel"] = "beta";
    const json signedBeta = signedBy(vendor_, vendor_, beta);
    ManifestVerifierConfig pinned = pinning({vendor_});
    EXPECT_EQ(refusal(pinned, signedBeta), "Manifest is for channel beta, not stable");
    pinned.channel = "beta";
    EXPECT_EQ(refusal(pinned, signedBeta), "");
    EXPECT_EQ(refusal(pinned, signedBy(vendor_, vendor_)), "Manifest is for channel stable, not beta");
    json relabelled = signedBeta;
    relabelled["manifest"]["channel"] = "stable";
    pinned.channel = "stable";
    EXPECT_EQ(refusal(pinned, relabelled), "Signature verification failed");
}

// One stolen key is not enough when two must sign; a key is rotated by a build that pins
// the old and the new one.
TEST_F(KeyCompromise, ThresholdCountsDistinctPinnedKeysAndRotationKeepsWorking) {
    const SigningKey second = ed25519Key();
    const ManifestVerifierConfig both = pinning({vendor_, second}, 2);
    log_.clear();
    EXPECT_EQ(refusal(both, signedBy(vendor_, vendor_)), "Signature verification failed");
    EXPECT_TRUE(log_.contains("[ERROR] Signed by 1 of the pinned release keys, 2 required"));
    EXPECT_EQ(refusal(both, signedByAll({vendor_, vendor_})), "Signature verification failed");
    EXPECT_EQ(refusal(both, signedByAll({vendor_, attacker_})), "Signature verification failed");
    EXPECT_EQ(refusal(both, signedByAll({attacker_, second, vendor_})), "");

    const SigningKey& oldKey = vendor_;
    const SigningKey& newKey = second;
    const ManifestVerifierConfig oldBuild = pinning({oldKey}), rotating = pinning({oldKey, newKey}),
                                 newBuild = pinning({newKey});
    const json byBoth = signedByAll({oldKey, newKey}), byNewOnly = signedByAll({newKey}),
               byOldOnly = signedByAll({oldKey});
    log_.clear();
    EXPECT_EQ(refusal(oldBuild, byBoth), "");
    EXPECT_TRUE(log_.contains("[DEBUG] Ignored a signature: Signature verification failed: Signature verification failed"));
    EXPECT_EQ(refusal(rotating, byBoth), "");
    EXPECT_EQ(refusal(rotating, byNewOnly), "");
    EXPECT_EQ(refusal(newBuild, byNewOnly), "");
    EXPECT_EQ(refusal(oldBuild, byNewOnly), "Signature verification failed");
    EXPECT_EQ(refusal(newBuild, byOldOnly), "Signature verification failed");
}

TEST_F(KeySubstitution, ManifestOwnRsaKeyIsRefused) {
    const std::string ed = vendor_.publicKey, rsa = vendorRsa_.publicKey;
    expectVerdicts({
        {"attacker's RSA key", signedBy(attackerRsa_, attackerRsa_), ed, rsa, false,
         "[ERROR] RSA public key in manifest is not the pinned release key"},
        {"no RSA key pinned", signedBy(attackerRsa_, attackerRsa_), ed, "", false,
         "[ERROR] RSA public key not configured"},
        {"vendor's key named, attacker's signature", signedBy(attackerRsa_, vendorRsa_), ed, rsa, false,
         "[ERROR] Signature verification failed: RSA signature verification failed"},
        {"vendor's RSA signature", signedBy(vendorRsa_, vendorRsa_), ed, rsa, true,
         "[INFO] Signature verified successfully using RSA-SHA256"},
    });
}

TEST_F(KeySubstitution, ManifestSignedWithAnotherEd25519KeyIsRefused) {
    const std::string ed = vendor_.publicKey;
    expectVerdicts({
        {"attacker's key named", signedBy(attacker_, attacker_), ed, "", false,
         "[ERROR] Signature verification failed: Signature verification failed"},
        {"vendor's key named", signedBy(attacker_, vendor_), ed, "", false,
         "[ERROR] Signature verification failed: Signature verification failed"},
        {"vendor's signature", signedBy(vendor_, vendor_), ed, "", true,
         "[INFO] Signature verified successfully using Ed25519"},
    });
}

TEST_F(TamperedManifest, ChangedDigestOrFileOrderIsRefused) {
    const json signedDoc = signedBy(vendor_, vendor_);
    json changed = signedDoc, reordered = signedDoc, renamed = signedDoc;
    changed["manifest"]["files"][1]["sha256"] = "beee";
    std::swap(reordered["manifest"]["files"][0], reordered["manifest"]["files"][1]);
    renamed["signature"]["algorithm"] = "ed25519";
    const std::string failed = "[ERROR] Signature verification failed: Signature verification failed";
    expectVerdicts({
        {"digest changed", changed, vendor_.publicKey, "", false, failed},
        {"files reordered", reordered, vendor_.publicKey, "", false, failed},
        {"algorithm renamed", renamed, vendor_.publicKey, "", false, "[ERROR] Unsupported signature algorithm: ed25519"},
    });

    // The accepted manifest stays current after a later rejection.
    ManifestVerifierConfig config = installed("2.0.0", "1", true);
    config.publicKeys = {vendor_.publicKey};
    ManifestVerifier verifier = make(config);
    ASSERT_TRUE(verifier.parseAndVerify(signedDoc.dump()).valid);
    EXPECT_FALSE(verifier.parseAndVerify(changed.dump()).manifest);
    EXPECT_EQ(verifier.getCurrentManifest()->files[1].sha256, "beef");
}

TEST_F(UnsignedManifest, IsRefusedByAPinnedBuild) {
    // requireSignature stays off: pinning a key alone must turn checking on.
    expectVerdicts({
        {"Ed25519 key pinned", document("2.1.0"), vendor_.publicKey, "", false,
         "[ERROR] Signature verification failed: Invalid signature size"},
        {"only an RSA key pinned", document("2.1.0"), "", vendorRsa_.publicKey, false,
         "[ERROR] Ed25519 public key not configured"},
        {"nothing pinned", document("2.1.0"), "", "", true, "[WARNING] Signature verification is disabled"},
    });

    // A build that requires signatures accepts nothing without a key, nor before its crypto
    // library is ready.
    ManifestVerifierConfig required = installed("2.0.0", "1", true);
    required.requireSignature = true;
    log_.clear();
    EXPECT_FALSE(make(required).parseAndVerify(document("2.1.0").dump()).valid);
    EXPECT_TRUE(log_.contains("[ERROR] Ed25519 public key not configured"));
    required.publicKeys = {vendor_.publicKey};
    CryptoUtils::cleanup();
    EXPECT_FALSE(make(required).parseAndVerify(signedBy(vendor_, vendor_).dump()).valid);
    EXPECT_TRUE(log_.contains("[ERROR] CryptoUtils not initialized"));
}

TEST_F(Rollback, OlderSignedManifestIsRefusedUnlessForced) {
    struct RollbackCase {
        std::string installedVersion, manifestVersion;
        bool allowRollback;
        bool accepted;
    };
    for (const RollbackCase& c : std::vector<RollbackCase>{
             {"10.0.0", "9.0.0", false, false},
             {"10.0.0", "9.0.0", true, true},
             {"9.0.0", "10.0.0", false, true},
             {"2.1.0", "2.1.0", false, true},
         }) {
        ManifestVerifierConfig config = installed(c.installedVersion, "1", true);
        config.publicKeys = {vendor_.publicKey};
        config.allowRollback = c.allowRollback;
        const VerificationResult result =
            make(config).parseAndVerify(signedBy(vendor_, vendor_, document(c.manifestVersion)).dump());
        EXPECT_EQ(result.valid, c.accepted) << c.installedVersion << " <- " << c.manifestVersion;
        EXPECT_EQ(result.errorMessage, c.accepted ? "" : "Rollback refused");
    }
    EXPECT_TRUE(
        log_.contains("[WARNING] Rollback refused: release 9.0.0 is older than installed 10.0.0 (--force installs it)"));
}

// Checks before any signature: the text, its structure, the downgrade and minimum-version gates.
TEST_F(VerifierTest, UnsignedChecksAndVersionGates) {
    struct Row {
        std::string what, installed;
        bool allowDowngrades;
        std::string text, error, logged;
    };
    const std::string gate = "Version compatibility check failed";
    json unsigned_ = document("2.1.0");
    unsigned_.erase("signature");
    for (const Row& row : std::vector<Row>{
             {"not JSON", "1.0.0", true, "{", "Failed to parse manifest JSON", "[ERROR] Failed to parse manifest JSON"},
             {"no signature record", "1.0.0", true, unsigned_.dump(),
              "Invalid manifest structure: Signature algorithm is empty", "[INFO] Manifest parsed successfully, version: 2.1.0"},
             {"below the minimum", "1.2.9", true, document("1.3.0", "1", "1.2.10").dump(), gate,
              "[ERROR] Current version 1.2.9 below minimum required 1.2.10"},
             {"minimum exactly met", "1.2.10", true, document("1.3.0", "1", "1.2.10").dump(), "",
              "[INFO] Manifest verification completed successfully"},
             {"minimum met", "10.0.0", false, document("10.0.1", "1", "9.0.0").dump(), "",
              "[INFO] Manifest verification completed successfully"},
             {"downgrade refused", "10.0.0", false, document("9.0.0").dump(), gate,
              "[WARNING] Downgrade detected: 9.0.0 < 10.0.0"},
             {"downgrade allowed", "10.0.0", true, document("9.0.0").dump(), "", "[INFO] Manifest verification completed successfully"},
             {"same version, downgrades off", "2.1.0", false, document("2.1.0").dump(), "",
              "[INFO] Manifest verification completed successfully"},
         }) {
        log_.clear();
        ManifestVerifier verifier = make(installed(row.installed, "1", row.allowDowngrades));
        const VerificationResult result = verifier.parseAndVerify(row.text);
        EXPECT_EQ(result.errorMessage, row.error) << row.what;
        EXPECT_EQ(result.valid, row.error.empty()) << row.what;
        EXPECT_EQ(verifier.getCurrentManifest().has_value(), row.error.empty()) << row.what;
        EXPECT_TRUE(log_.contains(row.logged)) << row.what << ": " << ::testing::PrintToString(log_.lines());
    }
}

TEST_F(VerifierTest, AcceptedManifestLogsItsAnalysisInOrder) {
    ManifestVerifier verifier = make(installed("2.0.0", "1200", true));
    EXPECT_FALSE(verifier.analyzeVersionComparison());  // nothing accepted yet
    const VerificationResult result = verifier.parseAndVerify(document("2.1.0").dump());
    ASSERT_TRUE(result.valid);
    EXPECT_TRUE(result.structureValid && result.signatureValid);
    EXPECT_EQ(result.manifestVersion, "2.1.0");
    EXPECT_TRUE(verifier.analyzeVersionComparison());
    EXPECT_EQ(log_.lines(), (std::vector<std::string>{
                                "[INFO] Manifest parsed successfully, version: 2.1.0",
                                "[WARNING] Signature verification is disabled",
                                "[INFO] Manifest verification completed successfully",
                                "[INFO] === Version Comparison Analysis ===",
                                "[INFO] Installed VELK version: 2.0.0 build 1200",
                                "[INFO] Manifest version: 2.1.0 build 1234",
                                "[INFO] Updater version: 1.0.0",
                                "[INFO] Allow downgrades: YES",
                                "[INFO] Version comparison: 2.1.0 vs 2.0.0 = NEWER",
                                "[INFO] [OK] UPDATE AVAILABLE: Manifest version is newer than installed version",
                                "[INFO] Update type: VERSION UPDATE (2.0.0 -> 2.1.0)",
                            }));
}

// The update decision: versions in numeric order first, then build numbers read as signed
// 64-bit numbers (unreadable ones as 0).
TEST_F(VerifierTest, UpdateDecision) {
    struct Row {
        std::string installedVersion, installedBuild, manifestVersion, manifestBuild;
        bool allowDowngrades;
        bool update;
        std::string order, verdict;
    };
    const std::string same = "[OK] NO UPDATE NEEDED: Already at the exact same version and build";
    const std::string patch = "[OK] PATCH UPDATE AVAILABLE: Same version, newer build number";
    for (const Row& row : std::vector<Row>{
             {"9.0.0", "1", "10.0.0", "1", false, true, "NEWER", "[OK] UPDATE AVAILABLE: Manifest version is newer than installed version"},
             {"10.0.0", "1", "9.0.0", "1", true, true, "OLDER", "[OK] DOWNGRADE ALLOWED: allow_downgrades is enabled"},
             {"2.0.0", "5", "2.0.0-beta", "6", false, true, "SAME", patch},
             {"1.0.0", "1", "1.0.0", "9223372036854775807", false, true, "SAME", patch},
             {"1.2.0", "100", "1.2", "0100", true, false, "SAME", same},
             {"1.0.0", "1", "1.0.12345678901", "1", false, false, "SAME", same},
             {"1.0.0", "0", "1.0.0", "nightly", false, false, "SAME", same},
             {"1.0.0", "0", "1.0.0", "99999999999999999999", false, false, "SAME", same},
             {"1.0.0", "5", "1.0.0", "", true, true, "SAME", "[OK] BUILD DOWNGRADE ALLOWED: allow_downgrades is enabled"},
             {"1.0.0", "", "1.0.0", "-2", false, false, "SAME", "[BLOCKED] BUILD DOWNGRADE BLOCKED: allow_downgrades is disabled"},
         }) {
        const std::string what = row.manifestVersion + " build " + row.manifestBuild;
        ManifestVerifier verifier = make(installed(row.installedVersion, row.installedBuild, row.allowDowngrades));
        ASSERT_TRUE(verifier.parseAndVerify(document(row.manifestVersion, row.manifestBuild).dump()).valid) << what;
        log_.clear();
        EXPECT_EQ(verifier.analyzeVersionComparison(), row.update) << what;
        EXPECT_TRUE(log_.contains("[INFO] Version comparison: " + row.manifestVersion + " vs " + row.installedVersion +
                                  " = " + row.order)) << what;
        EXPECT_TRUE(log_.contains("[INFO] " + row.verdict)) << what;
    }
}

}  // namespace
}  // namespace velk::updater
