#include "release/manifest_verifier.hpp"
#include "release/signed_text.hpp"
#include "release/version_decision.hpp"

#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <algorithm>
#include <memory>
#include <nlohmann/json.hpp>

#include "crypto/crypto_utils.hpp"
#include "support/log_capture.hpp"

namespace velk::updater {
namespace {

using nlohmann::json;

std::string base64(const std::string& bytes) {
    std::string text(4 * ((bytes.size() + 2) / 3) + 1, '\0');
    text.resize(EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), reinterpret_cast<const unsigned char*>(bytes.data()),
                                static_cast<int>(bytes.size())));
    return text;
}

// Two files, and a placeholder signature record that signs nothing.
json document(const std::string& version = "2.1.0", const std::string& build = "1234", const std::string& minimum = "") {
    json doc = json::parse(R"({"manifest": {"git_commit": "abc123", "expires": "2200-01-01T00:00:00Z", "files": [
        {"name": "VELK.dll", "url": "files/VELK.dll", "size": 42, "sha256": "d00d", "target_path": "VELK.dll"},
        {"name": "VELK_Launcher.exe", "url": "files/L.exe", "size": 7, "sha256": "beef", "target_path": "VELK_Launcher.exe"}]},
      "signature": {"algorithm": "Ed25519", "public_key": "a2V5", "signature": "c2ln"}})");
    doc["manifest"]["version"] = version;
    doc["manifest"]["build_number"] = build;
    if (!minimum.empty()) doc["manifest"]["minimum_version"] = minimum;
    return doc;
}

json edited(json doc, const std::string& pointer, const json& value) {
    doc[json::json_pointer(pointer)] = value;
    return doc;
}

// A release signing key as its owner holds it; its public key and signatures in base64.
struct SigningKey {
    std::string algorithm, publicKey;
    std::shared_ptr<EVP_PKEY> key;
    std::string sign(const std::string& message) const {
        std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
        std::string signature(EVP_PKEY_get_size(key.get()), '\0');
        std::size_t size = signature.size();
        EVP_DigestSignInit(ctx.get(), nullptr, algorithm == "Ed25519" ? nullptr : EVP_sha256(), nullptr, key.get());
        EVP_DigestSign(ctx.get(), reinterpret_cast<unsigned char*>(signature.data()), &size,
                       reinterpret_cast<const unsigned char*>(message.data()), message.size());
        return base64(signature);
    }
};

SigningKey signingKey(bool rsa) {
    std::shared_ptr<EVP_PKEY> key(rsa ? EVP_RSA_gen(2048) : EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"), EVP_PKEY_free);
    unsigned char* der = nullptr;
    const int length = i2d_PUBKEY(key.get(), &der);
    std::string publicKey(reinterpret_cast<char*>(der), static_cast<std::size_t>(length));
    OPENSSL_free(der);
    if (!rsa) publicKey.erase(0, publicKey.size() - 32);  // an Ed25519 key is pinned as its raw 32 bytes
    return {rsa ? "RSA-SHA256" : "Ed25519", base64(publicKey), key};
}

// `doc` signed by each of `signers` as a publisher writes it; `named` replaces the first record's key.
json signedBy(const std::vector<SigningKey>& signers, json doc = document(), const SigningKey* named = nullptr) {
    const std::string message = signedManifestText(*parseManifest(doc.dump()));
    doc["signatures"] = json::array();
    for (const SigningKey& signer : signers) {
        doc["signatures"].push_back({{"algorithm", signer.algorithm}, {"public_key", signer.publicKey},
                                     {"signature", signer.sign(message)}});
    }
    if (named != nullptr) doc["signatures"][0]["public_key"] = named->publicKey;
    doc["signature"] = doc["signatures"][0];
    if (signers.size() == 1) doc.erase("signatures");
    return doc;
}

// A build's verifier settings: the Ed25519 keys it pins, and the rest as the row says.
struct Build : ManifestVerifierConfig {
    explicit Build(std::vector<std::string> keys = {}) { publicKeys = std::move(keys); }
    Build& rsa(const std::string& key) { rsaPublicKey = key; return *this; }
    Build& needs(std::uint32_t keys) { threshold = keys; return *this; }
    Build& on(const std::string& name) { channel = name; return *this; }
    Build& required() { requireSignature = true; return *this; }
    Build& installed(const std::string& version, bool downgrades = true) { currentVersion = version; allowDowngrades = downgrades; return *this; }
    Build& rollbackAllowed() { allowRollback = true; return *this; }
};

// One manifest handed to one build, and its verdict: the error ("" when accepted), part of a line naming why.
struct Verdict {
    std::string group, what;
    json manifest;
    ManifestVerifierConfig build;
    std::string error, logged = "";
};

// A vendor with two pinned Ed25519 keys and an RSA key, and an attacker with keys of its own.
class VerifierTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        vendor_ = signingKey(false);
        vendor2_ = signingKey(false);
        vendorRsa_ = signingKey(true);
        attacker_ = signingKey(false);
        attackerRsa_ = signingKey(true);
    }
    void SetUp() override { ASSERT_TRUE(CryptoUtils::initialize()); }
    void TearDown() override { CryptoUtils::cleanup(); }

    static std::vector<Verdict> verdicts() {
        const std::string ed = vendor_.publicKey, ed2 = vendor2_.publicKey, rsa = vendorRsa_.publicKey;
        const std::string failed = "Signature verification failed", gate = "Version compatibility check failed";
        const std::string mismatch = "[ERROR] Signature verification failed: Signature verification failed";
        const std::string done = "[INFO] Manifest verification completed successfully";
        const json byVendor = signedBy({vendor_}), expired = edited(document(), "/manifest/expires", "2001-01-01T00:00:00Z");
        const json beta = signedBy({vendor_}, edited(document(), "/manifest/channel", "beta"));
        json undated = document(), reordered = byVendor, nested = document();
        undated["manifest"].erase("expires");
        std::swap(reordered["manifest"]["files"][0], reordered["manifest"]["files"][1]);
        nested["manifest"]["signature"] = nested["signature"];
        nested.erase("signature");
        return {
            // A mirror that keeps serving an old signed manifest would hide every later release.
            {"freeze", "expired", signedBy({vendor_}, expired), Build({ed}), "Manifest expired on 2001-01-01T00:00:00Z"},
            {"freeze", "undated", signedBy({vendor_}, undated), Build({ed}), "Manifest has no expiry"},
            {"freeze", "unreadable expiry", signedBy({vendor_}, edited(document(), "/manifest/expires", "next year")), Build({ed}),
             "Manifest expired on next year"},
            // A build without a key cannot tell a real expiry from a forged one and reads old manifests.
            {"freeze", "undated, nothing pinned", undated, Build(), ""},
            {"channel", "beta on stable", beta, Build({ed}), "Manifest is for channel beta, not stable"},
            {"channel", "beta on beta", beta, Build({ed}).on("beta"), ""},
            // One stolen key is not enough when two must sign; pinning the old and new key rotates.
            {"threshold", "one of two", byVendor, Build({ed, ed2}).needs(2), failed, "Signed by 1 of the pinned release keys, 2 required"},
            {"threshold", "one key twice", signedBy({vendor_, vendor_}), Build({ed, ed2}).needs(2), failed},
            {"threshold", "two pinned among others", signedBy({attacker_, vendor2_, vendor_}), Build({ed, ed2}).needs(2), ""},
            {"threshold", "old build, old and new key", signedBy({vendor_, vendor2_}), Build({ed}), "", "[DEBUG] Ignored a signature"},
            {"threshold", "rotating build, new key", signedBy({vendor2_}), Build({ed, ed2}), ""},
            {"threshold", "old build, new key", signedBy({vendor2_}), Build({ed}), failed},
            {"rsa", "attacker's RSA key", signedBy({attackerRsa_}), Build({ed}).rsa(rsa), failed, "is not the pinned release key"},
            {"rsa", "no RSA key pinned", signedBy({attackerRsa_}), Build({ed}), failed, "RSA public key not configured"},
            {"rsa", "vendor's key named, attacker signed", signedBy({attackerRsa_}, document(), &vendorRsa_), Build({ed}).rsa(rsa), failed,
             "RSA signature verification failed"},
            {"rsa", "vendor's RSA signature", signedBy({vendorRsa_}), Build({ed}).rsa(rsa), "", "verified successfully using RSA-SHA256"},
            {"ed25519", "attacker's key named", signedBy({attacker_}), Build({ed}), failed, mismatch},
            {"ed25519", "vendor's key named", signedBy({attacker_}, document(), &vendor_), Build({ed}), failed, mismatch},
            {"tamper", "digest changed", edited(byVendor, "/manifest/files/1/sha256", "beee"), Build({ed}), failed, mismatch},
            {"tamper", "files reordered", reordered, Build({ed}), failed, mismatch},
            {"tamper", "algorithm renamed", edited(byVendor, "/signature/algorithm", "ed25519"), Build({ed}), failed,
             "Unsupported signature algorithm: ed25519"},
            // Signatures are not required by these builds: pinning a key alone turns checking on.
            {"unsigned", "Ed25519 key pinned", document(), Build({ed}), failed, "Invalid signature size"},
            {"unsigned", "only an RSA key pinned", document(), Build().rsa(rsa), failed, "Ed25519 public key not configured"},
            {"unsigned", "nothing pinned", document(), Build(), "", "Signature verification is disabled"},
            {"unsigned", "required, no key", document(), Build().required(), failed, "Ed25519 public key not configured"},
            {"rollback", "older", signedBy({vendor_}, document("9.0.0")), Build({ed}).installed("10.0.0"), "Rollback refused",
             "release 9.0.0 is older than installed 10.0.0 (--force installs it)"},
            {"rollback", "older, forced", signedBy({vendor_}, document("9.0.0")), Build({ed}).installed("10.0.0").rollbackAllowed(), ""},
            {"rollback", "the same", byVendor, Build({ed}).installed("2.1.0"), ""},
            // Checks before any signature: the structure, the downgrade and minimum-version gates.
            {"gates", "signature only inside the manifest", nested, Build(), "Invalid manifest structure: Signature algorithm is empty",
             "parsed successfully, version: 2.1.0"},
            {"gates", "below the minimum", document("1.3.0", "1", "1.2.10"), Build().installed("1.2.9"), gate, "1.2.9 below minimum required 1.2.10"},
            {"gates", "minimum exactly met", document("1.3.0", "1", "1.2.10"), Build().installed("1.2.10"), "", done},
            {"gates", "downgrade refused", document("9.0.0"), Build().installed("10.0.0", false), gate, "Downgrade detected: 9.0.0 < 10.0.0"},
            {"gates", "downgrade allowed, nothing pinned", document("9.0.0"), Build().installed("10.0.0"), "", done},
            {"gates", "the same, downgrades off", document(), Build().installed("2.1.0", false), "", done},
        };
    }

    void expectVerdicts(const std::string& group) {
        for (const Verdict& row : verdicts()) {
            if (row.group != group) continue;
            SCOPED_TRACE(row.what);
            log_.clear();
            ManifestVerifier verifier(row.build, log_.logger());
            const VerificationResult result = verifier.parseAndVerify(row.manifest.dump());
            EXPECT_EQ(result.errorMessage, row.error);
            EXPECT_EQ(result.valid, row.error.empty());
            EXPECT_EQ(verifier.getCurrentManifest().has_value(), row.error.empty());
            const auto lines = log_.lines();
            EXPECT_TRUE(std::any_of(lines.begin(), lines.end(), [&](const std::string& line) {
                return line.find(row.logged) != std::string::npos;
            })) << ::testing::PrintToString(lines);
        }
    }

    test::LogCapture log_;
    static inline SigningKey vendor_, vendor2_, vendorRsa_, attacker_, attackerRsa_;
};
using FreezeAttack = VerifierTest;
using WrongChannel = VerifierTest;
using KeyCompromise = VerifierTest;
using KeySubstitution = VerifierTest;
using UnsignedManifest = VerifierTest;
using TamperedManifest = VerifierTest;
using Rollback = VerifierTest;

TEST_F(FreezeAttack, ExpiredOrUndatedManifestIsRefusedByAPinnedBuild) { expectVerdicts("freeze"); }
TEST_F(WrongChannel, ManifestSignedForAnotherChannelIsRefused) { expectVerdicts("channel"); }
TEST_F(KeyCompromise, ThresholdCountsDistinctPinnedKeysAndRotationKeepsWorking) { expectVerdicts("threshold"); }
TEST_F(KeySubstitution, ManifestOwnRsaKeyIsRefused) { expectVerdicts("rsa"); }
TEST_F(KeySubstitution, ManifestSignedWithAnotherEd25519KeyIsRefused) { expectVerdicts("ed25519"); }
TEST_F(Rollback, OlderSignedManifestIsRefusedUnlessForced) { expectVerdicts("rollback"); }
TEST_F(VerifierTest, UnsignedChecksAndVersionGates) { expectVerdicts("gates"); }

TEST_F(TamperedManifest, ChangedDigestOrFileOrderIsRefused) {
    expectVerdicts("tamper");
    // The accepted manifest stays current after a later rejection.
    ManifestVerifier verifier(Build({vendor_.publicKey}), log_.logger());
    ASSERT_TRUE(verifier.parseAndVerify(signedBy({vendor_}).dump()).valid);
    EXPECT_FALSE(verifier.parseAndVerify(edited(signedBy({vendor_}), "/manifest/files/1/sha256", "beee").dump()).manifest);
    EXPECT_EQ(verifier.getCurrentManifest()->files[1].sha256, "beef");
}

TEST_F(UnsignedManifest, IsRefusedByAPinnedBuild) {
    expectVerdicts("unsigned");
    // Nor is anything accepted before the crypto library is ready.
    CryptoUtils::cleanup();
    EXPECT_FALSE(ManifestVerifier(Build({vendor_.publicKey}), log_.logger()).parseAndVerify(signedBy({vendor_}).dump()).valid);
    EXPECT_TRUE(log_.contains("[ERROR] CryptoUtils not initialized"));
}

// Every signed field carries its length, so no value can be moved into its neighbour.
TEST(SignedText, IsTheFixedListOfLengthPrefixedFields) {
    json doc = edited(document(), "/manifest/rollout_percentage", 25);
    EXPECT_EQ(signedManifestText(*parseManifest(doc.dump())),
              "VELK signed manifest 2\nversion 5 2.1.0\nbuild_number 4 1234\ngit_commit 6 abc123\nchannel 6 stable\n"
              "expires 20 2200-01-01T00:00:00Z\nrollout_percentage 2 25\n"
              "name 8 VELK.dll\nsha256 4 d00d\nsize 2 42\nname 17 VELK_Launcher.exe\nsha256 4 beef\nsize 1 7\n");
}

// Versions compare as numbers per component, then builds as signed 64-bit numbers (unreadable: 0).
TEST_F(VerifierTest, UpdateDecision) {
    struct Row { std::string installed, installedBuild, version, build; bool allowDowngrades, update; std::string order, verdict; };
    for (const Row& row : std::vector<Row>{
             {"1.2.9", "1", "1.2.10", "1", false, true, "NEWER", "[OK] UPDATE AVAILABLE"},
             {"1.2.3", "1", "1.2.3.4", "1", false, true, "NEWER", "[OK] UPDATE AVAILABLE"},
             {"10.0.0", "1", "9.0.0", "1", true, true, "OLDER", "[OK] DOWNGRADE ALLOWED"},
             {"3.0", "1", " 3.-1", "1", true, true, "OLDER", "[OK] DOWNGRADE ALLOWED"},
             {"1.0.0", "1", "1.0", "1", false, false, "SAME", "[OK] NO UPDATE NEEDED"},
             {"1.2.0", "1", "1.2.", "1", false, false, "SAME", "[OK] NO UPDATE NEEDED"},
             {"1.0.0", "1", "1.0.12345678901", "1", false, false, "SAME", "[OK] NO UPDATE NEEDED"},
             {"2.0.0", "5", "2.0.0-beta", "6", false, true, "SAME", "[OK] PATCH UPDATE AVAILABLE"},
             {"1.0.0", "1", "1.0.0", "9223372036854775807", false, true, "SAME", "[OK] PATCH UPDATE AVAILABLE"},
             {"1.2.0", "100", "1.2", "0100", true, false, "SAME", "[OK] NO UPDATE NEEDED"},
             {"1.0.0", "0", "1.0.0", "nightly", false, false, "SAME", "[OK] NO UPDATE NEEDED"},
             {"1.0.0", "0", "1.0.0", "99999999999999999999", false, false, "SAME", "[OK] NO UPDATE NEEDED"},
             {"1.0.0", "5", "1.0.0", "", true, true, "SAME", "[OK] BUILD DOWNGRADE ALLOWED"},
             {"1.0.0", "", "1.0.0", "-2", false, false, "SAME", "[BLOCKED] BUILD DOWNGRADE BLOCKED"},
         }) {
        SCOPED_TRACE(row.version + " build " + row.build);
        ManifestVerifierConfig config = Build().installed(row.installed, row.allowDowngrades);
        config.currentBuildNumber = row.installedBuild;
        ManifestVerifier verifier(config, log_.logger());
        EXPECT_FALSE(verifier.analyzeVersionComparison());  // nothing accepted yet
        const VerificationResult result = verifier.parseAndVerify(document(row.version, row.build).dump());
        ASSERT_TRUE(result.valid && result.structureValid && result.signatureValid);
        EXPECT_EQ(result.manifestVersion, row.version);
        log_.clear();
        EXPECT_EQ(verifier.analyzeVersionComparison(), row.update);
        EXPECT_EQ(log_.count("[INFO] " + row.verdict), 1u);
        EXPECT_EQ(log_.count("[INFO] Version comparison: " + row.version + " vs " + row.installed + " = " + row.order), 1u);
    }
}

// Checked once more right before files change: the same order, the same downgrade policy.
TEST(VersionDecision, ValidateVersionAppliesTheDowngradePolicyToNumericOrder) {
    struct Row { const char *installed, *target; bool allowDowngrades, valid; std::string message; };
    const std::string fresh = "No installed version found - assuming fresh install or legacy version";
    for (const Row& row : {
             Row{"10.0.0", "", true, false, "Target version is empty"},
             Row{"", "0.1", true, true, fresh},
             Row{"10.0.0", "9.0.0", true, true, "Downgrade allowed: 10.0.0 -> 9.0.0"},
             Row{"10.0.0", "9.0.0", false, false, "Downgrade detected: installed version 10.0.0 is newer than target version 9.0.0"},
             Row{"10.0.0", "10.0.1", false, true, "Upgrade: 10.0.0 -> 10.0.1"},
             Row{"10.0.0", "10.0", false, true, "Target version matches installed version (10.0.0)"},
         }) {
        const ValidationResult result = validateVersion(row.installed, row.target, row.allowDowngrades);
        EXPECT_EQ(result.valid, row.valid) << row.installed << " -> " << row.target;
        EXPECT_EQ(result.message, row.message);
        EXPECT_TRUE(result.missingItems.empty());
    }
}

}  // namespace
}  // namespace velk::updater
