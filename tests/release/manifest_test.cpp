#include "release/manifest.hpp"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace velk::updater {
namespace {

using nlohmann::json;

json validDocument() {
    return json::parse(R"({
      "manifest": {
        "version": "2.1.0", "build_number": "1234", "git_commit": "abc123",
        "release_date": "2025-03-14T09:26:53Z",
        "files": [
          {"name": "VELK.dll", "url": "files/VELK.dll", "size": 42, "sha256": "d00d", "target_path": "VELK.dll"},
          {"name": "VELK_Service.exe", "url": "files/VELK_Service.exe", "size": 7, "sha256": "beef",
           "target_path": "VELK_Service.exe", "action": "delete", "backup": true}
        ],
        "metadata": {"total_download_size": 49, "known_issues": ["none"], "restart_required": true}
      },
      "signature": {"algorithm": "Ed25519", "public_key": "a2V5", "signature": "c2ln",
                    "timestamp": "2025-03-14T10:00:00Z", "signer": "ci"}
    })");
}

std::optional<Manifest> parse(const json& document) { return parseManifest(document.dump()); }

TEST(ParseManifest, ReadsEveryFieldWithDefaults) {
    const auto manifest = parse(validDocument());
    ASSERT_TRUE(manifest);
    EXPECT_EQ(manifest->version, "2.1.0");
    EXPECT_EQ(manifest->build_number, "1234");
    EXPECT_EQ(manifest->channel, "stable");
    EXPECT_EQ(manifest->urgency, "normal");
    EXPECT_EQ(std::chrono::system_clock::to_time_t(manifest->release_date), 1741944413);
    ASSERT_EQ(manifest->files.size(), 2u);
    EXPECT_EQ(manifest->files[0].action, FileAction::Replace);
    EXPECT_FALSE(manifest->files[0].backup);
    EXPECT_EQ(manifest->files[1].action, FileAction::Delete);
    EXPECT_TRUE(manifest->files[1].backup);
    EXPECT_EQ(manifest->metadata.total_download_size, 49u);
    EXPECT_EQ(manifest->metadata.known_issues, std::vector<std::string>{"none"});
    EXPECT_TRUE(manifest->metadata.compatibility_tested.empty());
    EXPECT_EQ(manifest->signature.algorithm, "Ed25519");
    EXPECT_EQ(manifest->signature.signer, "ci");
    EXPECT_EQ(validateManifest(*manifest), "");
    EXPECT_TRUE(isManifestValid(*manifest));
}

TEST(ParseManifest, WrongTypesMakeTheResultEmpty) {
    auto with = [](const std::string& pointer, const json& value) {
        json document = validDocument();
        document[json::json_pointer(pointer)] = value;
        return parse(document);
    };
    EXPECT_FALSE(with("/manifest/version", 2));
    EXPECT_FALSE(with("/manifest/build_number", 1234));
    EXPECT_TRUE(with("/manifest/build_number", "1234"));
    EXPECT_FALSE(with("/manifest/git_commit", nullptr));
    EXPECT_FALSE(with("/manifest/files/0/name", nullptr));
    EXPECT_FALSE(with("/manifest/files/0/size", "42"));
    EXPECT_FALSE(with("/manifest/files/0/backup", 1));
    EXPECT_FALSE(with("/manifest/files", json::object()));
    EXPECT_FALSE(with("/manifest/files/0", "VELK.dll"));
    EXPECT_FALSE(with("/manifest/metadata", json::array()));
    EXPECT_FALSE(with("/manifest/metadata/known_issues", json::array({1})));
    EXPECT_FALSE(with("/signature", "signed"));
    EXPECT_FALSE(with("/signature/algorithm", false));
}

TEST(ParseManifest, NumbersAreSigned32BitReadings) {
    auto sizeOf = [](const json& value) {
        json document = validDocument();
        document["manifest"]["files"][0]["size"] = value;
        const auto manifest = parse(document);
        return manifest ? std::optional<std::uint64_t>(manifest->files[0].size) : std::nullopt;
    };
    EXPECT_EQ(sizeOf(1.9), 1u);
    EXPECT_EQ(sizeOf(true), 1u);
    EXPECT_EQ(sizeOf(2147483647), 2147483647u);
    // A negative size is widened with its sign, as the format reads it.
    EXPECT_EQ(sizeOf(-1), std::numeric_limits<std::uint64_t>::max());
    // Sizes the format cannot carry are refused rather than wrapped.
    EXPECT_FALSE(sizeOf(3000000000u));
    EXPECT_FALSE(sizeOf(2147483648.5));

    json document = validDocument();
    document["manifest"]["metadata"]["total_download_size"] = 4294967297u;  // low 32 bits: 1
    document["manifest"]["metadata"]["estimated_install_time"] = 12.7;
    const auto manifest = parse(document);
    ASSERT_TRUE(manifest);
    EXPECT_EQ(manifest->metadata.total_download_size, 1u);
    EXPECT_EQ(manifest->metadata.estimated_install_time, 12u);
}

TEST(ParseManifest, ActionTextIsCaseSensitive) {
    for (const auto& [text, action] : std::vector<std::pair<std::string, FileAction>>{
             {"merge", FileAction::Merge}, {"add", FileAction::Add}, {"Delete", FileAction::Replace},
             {"REPLACE", FileAction::Replace}, {"", FileAction::Replace}}) {
        json document = validDocument();
        document["manifest"]["files"][0]["action"] = text;
        EXPECT_EQ(parse(document)->files[0].action, action) << text;
    }
}

TEST(ParseManifest, OnlyTheTopLevelSignatureCounts) {
    json document = validDocument();
    document["manifest"]["signature"] = document["signature"];
    document.erase("signature");
    const auto manifest = parse(document);
    ASSERT_TRUE(manifest);
    EXPECT_TRUE(manifest->signature.algorithm.empty());
    EXPECT_EQ(validateManifest(*manifest), "Signature algorithm is empty");
}

TEST(ParseManifest, NonManifestTextsAreEmpty) {
    const std::string valid = validDocument().dump();
    EXPECT_FALSE(parseManifest(""));
    EXPECT_FALSE(parseManifest("[]"));
    EXPECT_FALSE(parseManifest(R"({"signature": {}})"));
    EXPECT_FALSE(parseManifest(R"({"manifest": "2.1.0"})"));
    EXPECT_FALSE(parseManifest(valid + " trailing"));
    EXPECT_FALSE(parseManifest(valid + "}"));
    EXPECT_FALSE(parseManifest("// comment\n" + valid));
    EXPECT_FALSE(parseManifest(valid.substr(0, valid.size() / 2)));
    EXPECT_TRUE(parseManifest(valid + "\n  "));
}

TEST(ValidateManifest, FirstBrokenRuleInOrder) {
    Manifest manifest = *parse(validDocument());
    EXPECT_EQ(validateManifest(Manifest{}), "Version is empty");

    Manifest noFiles = manifest;
    noFiles.files.clear();
    EXPECT_EQ(validateManifest(noFiles), "No files specified");
    json absent = validDocument();
    absent["manifest"].erase("files");
    EXPECT_EQ(validateManifest(*parse(absent)), "No files specified");

    Manifest unsigned_ = manifest;
    unsigned_.signature.signature.clear();
    unsigned_.signature.public_key.clear();
    EXPECT_EQ(validateManifest(unsigned_), "Signature is empty");
    unsigned_.signature.signature = "x";
    EXPECT_EQ(validateManifest(unsigned_), "Public key is empty");

    Manifest badFile = manifest;
    badFile.files[1].sha256.clear();
    badFile.files[1].size = 0;
    EXPECT_EQ(validateManifest(badFile), "File SHA256 is empty");
    badFile.files[1].url.clear();
    EXPECT_EQ(validateManifest(badFile), "File URL is empty");
    badFile.files[0].name.clear();
    EXPECT_EQ(validateManifest(badFile), "File name is empty");
    Manifest zero = manifest;
    zero.files[0].size = 0;
    EXPECT_EQ(validateManifest(zero), "File size is zero");
}

TEST(ParseIsoTime, ReadsUtc) {
    using std::chrono::system_clock;
    EXPECT_EQ(system_clock::to_time_t(parseIsoTime("1970-01-02T00:00:01Z")), 86401);
    EXPECT_EQ(system_clock::to_time_t(parseIsoTime("2024-02-29T23:59:59Z")), 1709251199);
    EXPECT_EQ(system_clock::to_time_t(parseIsoTime("yesterday")), 0);
    // Dates the clock cannot hold and impossible dates read as the epoch.
    EXPECT_EQ(system_clock::to_time_t(parseIsoTime("-30225-01-01T00:00:00Z")), 0);
    EXPECT_EQ(system_clock::to_time_t(parseIsoTime("9999-12-31T23:59:59Z")), 0);
    EXPECT_EQ(system_clock::to_time_t(parseIsoTime("2023-02-30T00:00:00Z")), 0);
}

}  // namespace
}  // namespace velk::updater
