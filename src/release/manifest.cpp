#include "release/manifest.hpp"

#include <ctime>
#include <iomanip>
#include <limits>
#include <nlohmann/json.hpp>
#include <sstream>

#include "release/path_rules.hpp"

namespace velk::updater {
namespace {

using nlohmann::json;

// Thrown for a document that is valid JSON but not a usable manifest.
struct NotAManifest : std::runtime_error {
    using std::runtime_error::runtime_error;
};

const json& objectAt(const json& parent, const char* key) {
    const json& value = parent.at(key);
    if (!value.is_object()) throw NotAManifest(std::string(key) + " is not an object");
    return value;
}

void readString(const json& object, const char* key, std::string& field) {
    if (object.contains(key)) field = object.at(key).get<std::string>();
}

void readBool(const json& object, const char* key, bool& field) {
    if (object.contains(key)) field = object.at(key).get<bool>();
}

// Numbers are read as signed 32-bit values: a fraction is dropped, booleans count as
// 1 and 0, and a larger integer keeps its low 32 bits.
std::int32_t readInt32(const json& value) {
    if (value.is_number_float()) return static_cast<std::int32_t>(static_cast<std::int64_t>(value.get<double>()));
    if (value.is_number_unsigned()) return static_cast<std::int32_t>(value.get<std::uint64_t>());
    return value.get<std::int32_t>();
}

template <typename Field>
void readNumber(const json& object, const char* key, Field& field) {
    if (object.contains(key)) field = static_cast<Field>(static_cast<std::int64_t>(readInt32(object.at(key))));
}

// A file size the 32-bit reading cannot carry would wrap into a size no file has, and
// every run would download the file again only to reject it. Such a manifest is refused.
std::uint64_t readFileSize(const json& value) {
    const bool fits = value.is_boolean() ||
                      (value.is_number_integer() && !value.is_number_unsigned()) ||
                      (value.is_number_unsigned() && value.get<std::uint64_t>() <= std::numeric_limits<std::int32_t>::max()) ||
                      (value.is_number_float() && value.get<double>() < 2147483648.0 && value.get<double>() > -2147483649.0);
    if (value.is_number() && !fits) throw NotAManifest("size out of range");
    return static_cast<std::uint64_t>(static_cast<std::int64_t>(readInt32(value)));
}

FileAction actionFromText(const std::string& text) {
    if (text == "merge") return FileAction::Merge;
    if (text == "delete") return FileAction::Delete;
    if (text == "add") return FileAction::Add;
    return FileAction::Replace;
}

ManifestPatch readPatch(const json& element) {
    if (!element.is_object()) throw NotAManifest("patch is not an object");
    ManifestPatch patch;
    readString(element, "from_sha256", patch.from_sha256);
    readString(element, "url", patch.url);
    if (element.contains("size")) patch.size = readFileSize(element.at("size"));
    readString(element, "sha256", patch.sha256);
    return patch;
}

ManifestFile readFile(const json& element) {
    if (!element.is_object()) throw NotAManifest("file entry is not an object");
    ManifestFile file;
    readString(element, "name", file.name);
    readString(element, "url", file.url);
    if (element.contains("size")) file.size = readFileSize(element.at("size"));
    readString(element, "sha256", file.sha256);
    readString(element, "target_path", file.target_path);
    std::string action = "replace";
    readString(element, "action", action);
    file.action = actionFromText(action);
    readBool(element, "backup", file.backup);
    readBool(element, "critical", file.critical);
    readBool(element, "restart_required", file.restart_required);
    if (element.contains("patches")) {
        const json& patches = element.at("patches");
        if (!patches.is_array() || patches.size() > kMaxPatchesPerFile) throw NotAManifest("patches is not a short array");
        for (const auto& patch : patches) file.patches.push_back(readPatch(patch));
    }
    return file;
}

ManifestMetadata readMetadata(const json& object) {
    ManifestMetadata metadata;
    readNumber(object, "total_download_size", metadata.total_download_size);
    readNumber(object, "estimated_install_time", metadata.estimated_install_time);
    readBool(object, "restart_required", metadata.restart_required);
    if (object.contains("compatibility_tested")) {
        metadata.compatibility_tested = object.at("compatibility_tested").get<std::vector<std::string>>();
    }
    if (object.contains("known_issues")) {
        metadata.known_issues = object.at("known_issues").get<std::vector<std::string>>();
    }
    readString(object, "support_url", metadata.support_url);
    return metadata;
}

ManifestSignature readSignature(const json& object) {
    ManifestSignature signature;
    readString(object, "algorithm", signature.algorithm);
    readString(object, "public_key", signature.public_key);
    readString(object, "signature", signature.signature);
    if (object.contains("timestamp")) signature.timestamp = parseIsoTime(object.at("timestamp").get<std::string>());
    readString(object, "signer", signature.signer);
    return signature;
}

Manifest readManifest(const json& root) {
    const json& object = objectAt(root, "manifest");
    Manifest manifest;
    readString(object, "version", manifest.version);
    if (object.contains("release_date")) {
        manifest.release_date = parseIsoTime(object.at("release_date").get<std::string>());
    }
    readString(object, "build_number", manifest.build_number);
    readString(object, "git_commit", manifest.git_commit);
    readString(object, "channel", manifest.channel);
    readString(object, "minimum_version", manifest.minimum_version);
    readString(object, "rollback_version", manifest.rollback_version);
    readString(object, "description", manifest.description);
    readString(object, "changelog_url", manifest.changelog_url);
    readString(object, "urgency", manifest.urgency);
    readString(object, "expires", manifest.expires);
    if (object.contains("rollout_percentage")) {
        const json& share = object.at("rollout_percentage");
        if (!share.is_number_integer() || share.get<std::int64_t>() < 0 || share.get<std::int64_t>() > 100) {
            throw NotAManifest("rollout_percentage is not a whole number from 0 to 100");
        }
        manifest.rollout_percentage = share.get<std::uint32_t>();
    }
    if (object.contains("files")) {
        const json& files = object.at("files");
        if (!files.is_array()) throw NotAManifest("files is not an array");
        for (const auto& element : files) manifest.files.push_back(readFile(element));
    }
    if (object.contains("metadata")) manifest.metadata = readMetadata(objectAt(object, "metadata"));
    if (root.contains("signature")) manifest.signature = readSignature(objectAt(root, "signature"));
    if (root.contains("signatures")) {
        const json& signatures = root.at("signatures");
        if (!signatures.is_array()) throw NotAManifest("signatures is not an array");
        for (const auto& element : signatures) {
            if (!element.is_object()) throw NotAManifest("signature is not an object");
            manifest.signatures.push_back(readSignature(element));
        }
    }
    return manifest;
}

bool isSha256Hex(const std::string& text) {
    return text.size() == 64 && text.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
}

std::string patchProblem(const ManifestPatch& patch) {
    if (!isSha256Hex(patch.from_sha256) || !isSha256Hex(patch.sha256)) return "Patch digest is not a SHA-256";
    if (patch.size == 0) return "Patch size is zero";
    if (patch.url.empty()) return "Patch URL is empty";
    return urlPathProblem(patch.url);
}

}  // namespace

std::optional<Manifest> parseManifest(const std::string& text) {
    try {
        const json root = json::parse(text);
        if (!root.is_object() || !root.contains("manifest")) return std::nullopt;
        return readManifest(root);
    } catch (const std::exception&) {
        // Syntax errors, type mismatches and structural problems all mean "not a manifest".
        return std::nullopt;
    }
}

std::string validateManifest(const Manifest& manifest) {
    if (manifest.version.empty()) return "Version is empty";
    if (manifest.files.empty()) return "No files specified";
    if (manifest.signature.algorithm.empty()) return "Signature algorithm is empty";
    if (manifest.signature.signature.empty()) return "Signature is empty";
    if (manifest.signature.public_key.empty()) return "Public key is empty";
    for (const auto& file : manifest.files) {
        if (file.name.empty()) return "File name is empty";
        if (file.url.empty()) return "File URL is empty";
        if (file.sha256.empty()) return "File SHA256 is empty";
        if (file.size == 0) return "File size is zero";
        // Checked before anything is touched: an entry must stay inside the product's folders.
        for (const std::string& problem :
             {fileNameProblem(file.name), targetPathProblem(file.target_path), urlPathProblem(file.url)}) {
            if (!problem.empty()) return problem;
        }
        for (const auto& patch : file.patches) {
            if (const std::string problem = patchProblem(patch); !problem.empty()) return problem;
        }
    }
    return {};
}

bool isManifestValid(const Manifest& manifest) { return validateManifest(manifest).empty(); }

std::uint32_t patchWindowLog(std::uint64_t baseSize, std::uint64_t fileSize) {
    std::uint32_t log = 10;  // zstd's smallest window
    while (log < 63 && (std::uint64_t{1} << log) < baseSize + fileSize) ++log;
    return log;
}

std::chrono::system_clock::time_point parseIsoTime(const std::string& text) {
    using namespace std::chrono;
    std::tm calendar{};
    std::istringstream stream(text);
    stream >> std::get_time(&calendar, "%Y-%m-%dT%H:%M:%SZ");
    if (stream.fail()) return {};
    const year_month_day date{year{calendar.tm_year + 1900}, month{static_cast<unsigned>(calendar.tm_mon + 1)},
                              day{static_cast<unsigned>(calendar.tm_mday)}};
    if (!date.ok()) return {};
    const seconds sinceEpoch = sys_days{date}.time_since_epoch() + hours{calendar.tm_hour} +
                               minutes{calendar.tm_min} + seconds{calendar.tm_sec};
    // The clock counts in units far finer than seconds; a date it cannot hold reads as
    // the epoch rather than overflowing.
    const auto limit = duration_cast<seconds>(system_clock::duration::max());
    if (sinceEpoch > limit || sinceEpoch < -limit) return {};
    return system_clock::time_point{duration_cast<system_clock::duration>(sinceEpoch)};
}

}  // namespace velk::updater
