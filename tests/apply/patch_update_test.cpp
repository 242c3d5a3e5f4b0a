// Updates by patch: a small zstd patch against the installed copy instead of the whole file,
// and the whole file whenever the patch cannot be trusted or used.
#include "file_updater_fixture.hpp"
#include "support/zstd_patch.hpp"

namespace velk::updater {
namespace {

// A build of a program: mostly the same bytes from one release to the next.
std::string build(char edition) {
    std::string bytes;
    for (int i = 0; i < 20000; ++i) bytes += "block " + std::to_string(i * 7919 % 10007) + ";";
    bytes[5000] = edition;
    bytes[90000] = edition;
    return bytes;
}

class PatchUpdateTest : public FileUpdaterTest {
protected:
    const std::string old_ = build('1');
    const std::string new_ = build('2');

    // The entry of the new build with one patch, served at the CDN, from `base`.
    ManifestFile patched(const std::string& patchBytes, const std::string& base) {
        ManifestFile file = entry("VELK.dll", new_);
        file.patches.push_back({sha256Hex(base), "files/VELK.dll.p1.zstpatch", patchBytes.size(), sha256Hex(patchBytes)});
        server_.set("/cdn/files/VELK.dll.p1.zstpatch", patchBytes);
        return file;
    }
    Manifest manifestOf(const ManifestFile& file) {
        Manifest manifest;
        manifest.version = "2.0.0";
        manifest.files = {file};
        return manifest;
    }
    bool update(const ManifestFile& file) {
        const auto results = updater().updateFiles(manifestOf(file), {});
        return results.size() == 1 && results[0].success;
    }
    std::size_t requestsFor(const std::string& path) {
        const auto all = server_.requests();
        return static_cast<std::size_t>(std::count(all.begin(), all.end(), path));
    }
};

// The whole file answers 404 everywhere: only the patch can make the new build.
TEST_F(PatchUpdateTest, DeltaIsUsed) {
    test::writeFile(installed("VELK.dll"), old_);
    const std::string patch = test::zstdPatch(old_, new_);
    ASSERT_LT(patch.size() * 10, new_.size());
    EXPECT_TRUE(update(patched(patch, old_)));
    EXPECT_EQ(test::readFile(installed("VELK.dll")), new_);
    EXPECT_EQ(log_.count("[INFO] Patched VELK.dll from " + server_.url("/cdn/files/VELK.dll.p1.zstpatch")), 1u);
    EXPECT_TRUE(fs::is_empty(downloads()));
}

// A patch that is not the one listed, or is listed but does not decode, or decodes to
// another file, is dropped once for the whole file.
TEST_F(PatchUpdateTest, CorruptPatchFallsBackToFull) {
    const std::string good = test::zstdPatch(old_, new_);
    std::string flipped = good;
    flipped[flipped.size() / 2] ^= 0x40;
    const struct {
        const char* what;
        std::string served;
        std::string listed;
        std::string reason;
    } rows[] = {
        {"changed on the server", flipped, good, "Patch digest mismatch"},
        {"damaged when listed", flipped, flipped, "Patch cannot be decoded"},
        {"cut short", good.substr(0, good.size() - 4), good.substr(0, good.size() - 4), "Patch is cut short or damaged"},
        {"something after it", good + "tail", good + "tail", "Data after the patch's frame"},
        {"another file", test::zstdPatch(old_, build('3')), test::zstdPatch(old_, build('3')),
         "Patched file does not match the release"},
    };
    server_.set("/cdn/files/VELK.dll", new_);
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        test::writeFile(installed("VELK.dll"), old_);
        ManifestFile file = patched(row.listed, old_);
        server_.set("/cdn/files/VELK.dll.p1.zstpatch", row.served);
        log_.clear();
        EXPECT_TRUE(update(file));
        EXPECT_EQ(test::readFile(installed("VELK.dll")), new_);
        EXPECT_EQ(log_.count("[WARNING] Patch for VELK.dll not used (" + std::string(row.reason)), 1u);
        EXPECT_EQ(log_.count("[WARNING] Patch for VELK.dll not used"), 1u);
    }
}

// A patch made from another copy than the one installed is never fetched; nor is any patch
// when patches are not allowed (a forced run, a repair).
TEST_F(PatchUpdateTest, PatchForAnotherBaseIgnored) {
    test::writeFile(installed("VELK.dll"), build('9'));
    server_.set("/cdn/files/VELK.dll", new_);
    EXPECT_TRUE(update(patched(test::zstdPatch(old_, new_), old_)));
    EXPECT_EQ(test::readFile(installed("VELK.dll")), new_);
    EXPECT_EQ(requestsFor("/cdn/files/VELK.dll.p1.zstpatch"), 0u);

    test::writeFile(installed("VELK.dll"), old_);
    updater().setPatchesAllowed(false);
    EXPECT_TRUE(update(patched(test::zstdPatch(old_, new_), old_)));
    EXPECT_EQ(requestsFor("/cdn/files/VELK.dll.p1.zstpatch"), 0u);
}

// A small patch that would inflate far beyond the entry's size is refused before it is
// decoded: by the size its frame states, and a frame that states none is not decoded at all.
// Nothing of its output stays.
TEST_F(PatchUpdateTest, PatchBombBounded) {
    const std::string zeros(64 << 20, '\0');
    const struct {
        std::string bomb;
        std::string reason;
    } rows[] = {
        {test::zstdPatch(old_, zeros), "Patch result larger than the expected " + std::to_string(new_.size()) + " bytes"},
        {test::zstdPatch(old_, zeros, false), "Patch does not state the size of its result"},
    };
    server_.set("/cdn/files/VELK.dll", new_);
    for (const auto& row : rows) {
        ASSERT_LT(row.bomb.size(), 64u * 1024);
        test::writeFile(installed("VELK.dll"), old_);
        log_.clear();
        EXPECT_TRUE(update(patched(row.bomb, old_)));
        EXPECT_EQ(log_.count("[WARNING] Patch for VELK.dll not used (" + row.reason + ")"), 1u) << row.reason;
        EXPECT_EQ(test::readFile(installed("VELK.dll")), new_);
        EXPECT_TRUE(fs::is_empty(downloads()));
    }
}

}  // namespace
}  // namespace velk::updater
