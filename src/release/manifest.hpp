#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace velk::updater {

// What a manifest asks to be done with a file; unknown texts mean Replace.
enum class FileAction : std::uint32_t {
    Replace = 0,
    Merge = 1,
    Delete = 2,
    Add = 3,
};

// A zstd patch that turns the copy whose SHA-256 is `from_sha256` into its entry's file,
// made with that copy as its prefix.
struct ManifestPatch {
    std::string from_sha256;
    std::string url;  // below the download bases, like a file's
    std::uint64_t size = 0;
    std::string sha256;
};

// A release lists patches from its few latest predecessors at most.
inline constexpr std::size_t kMaxPatchesPerFile = 8;

// The zstd window a patch from a base of `baseSize` bytes to a file of `fileSize` bytes is
// made with, as a power of two: it spans both, so the file can refer to any byte of the base.
// The publisher makes patches with it; the updater refuses bases that would need more.
std::uint32_t patchWindowLog(std::uint64_t baseSize, std::uint64_t fileSize);
// No patch needs more history than this (1 GiB): a larger base and file go whole.
inline constexpr std::uint32_t kMaxPatchWindowLog = 30;

// One file of a release. Fields carry their JSON key names.
struct ManifestFile {
    std::string name;
    std::string url;
    std::uint64_t size = 0;
    std::string sha256;
    std::string target_path;
    FileAction action = FileAction::Replace;
    bool backup = false;
    bool critical = false;
    bool restart_required = false;
    std::vector<ManifestPatch> patches;
};

struct ManifestMetadata {
    std::uint64_t total_download_size = 0;
    std::uint32_t estimated_install_time = 0;
    bool restart_required = false;
    std::vector<std::string> compatibility_tested;
    std::vector<std::string> known_issues;
    std::string support_url;
};

struct ManifestSignature {
    std::string algorithm;
    std::string public_key;
    std::string signature;
    std::chrono::system_clock::time_point timestamp{};
    std::string signer;
};

// A release as the update manifest describes it.
struct Manifest {
    std::string version;
    std::chrono::system_clock::time_point release_date{};
    std::string build_number;
    std::string git_commit;
    std::string channel = "stable";
    std::string minimum_version;
    std::string rollback_version;
    std::string description;
    std::string changelog_url;
    std::string urgency = "normal";
    // When the release stops being offered: "%Y-%m-%dT%H:%M:%SZ" (UTC); empty when not set.
    std::string expires;
    // The share of installations, in percent, that take this release.
    std::uint32_t rollout_percentage = 100;
    std::vector<ManifestFile> files;
    ManifestMetadata metadata;
    ManifestSignature signature;
    // Every signature when several keys signed; empty when only `signature` is given.
    std::vector<ManifestSignature> signatures;
};

// The manifest in a JSON document, or nothing when the text is not a usable manifest.
// Never throws and never logs.
std::optional<Manifest> parseManifest(const std::string& text);

// The first structural rule the manifest breaks, or an empty text when it passes.
std::string validateManifest(const Manifest& manifest);
bool isManifestValid(const Manifest& manifest);

// "%Y-%m-%dT%H:%M:%SZ" read as UTC, whole seconds.
std::chrono::system_clock::time_point parseIsoTime(const std::string& text);

}  // namespace velk::updater
