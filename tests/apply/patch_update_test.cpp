// The whole file is taken whenever a patch cannot be trusted or used.
#include "client_fixture.hpp"
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
    bool update(const ManifestFile& file) {
        const auto results = updater().updateFiles(manifestOf({file}), {});
        return results.size() == 1 && results[0].success;
    }
    // Each patch (as served, as listed) is dropped once for the reason, leaving nothing behind.
    void expectWholeFileInstead(const std::vector<std::array<std::string, 3>>& rows) {
        server_.set("/cdn/files/VELK.dll", new_);
        for (const auto& [served, listed, reason] : rows) {
            SCOPED_TRACE(reason);
            test::writeFile(installed("VELK.dll"), old_);
            const ManifestFile file = patched(listed, old_);
            server_.set("/cdn/files/VELK.dll.p1.zstpatch", served);
            log_.clear();
            EXPECT_TRUE(update(file));
            EXPECT_EQ(test::readFile(installed("VELK.dll")), new_);
            EXPECT_EQ(log_.count("[WARNING] Patch for VELK.dll not used (" + reason), 1u);
            EXPECT_EQ(log_.count("[WARNING] Patch for VELK.dll not used"), 1u);
            EXPECT_TRUE(fs::is_empty(downloads()));
        }
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

// Changed on the server, undecodable, or decoding to another file: dropped once for the whole file.
TEST_F(PatchUpdateTest, CorruptPatchFallsBackToFull) {
    const std::string good = test::zstdPatch(old_, new_);
    std::string flipped = good;
    flipped[flipped.size() / 2] ^= 0x40;
    const std::string cut = good.substr(0, good.size() - 4);
    const std::string other = test::zstdPatch(old_, build('3'));
    expectWholeFileInstead({{flipped, good, "Patch digest mismatch"},  // changed on the server
                            {flipped, flipped, "Patch cannot be decoded"},
                            {cut, cut, "Patch is cut short or damaged"},
                            {good + "tail", good + "tail", "Data after the patch's frame"},
                            {other, other, "Patched file does not match the release"}});
}

// Nor is any patch fetched when patches are not allowed (a forced run, a repair).
TEST_F(PatchUpdateTest, PatchForAnotherBaseIgnored) {
    test::writeFile(installed("VELK.dll"), build('9'));
    server_.set("/cdn/files/VELK.dll", new_);
    EXPECT_TRUE(update(patched(test::zstdPatch(old_, new_), old_)));
    EXPECT_EQ(test::readFile(installed("VELK.dll")), new_);
    EXPECT_EQ(std::ranges::count(server_.requests(), "/cdn/files/VELK.dll.p1.zstpatch"), 0);

    test::writeFile(installed("VELK.dll"), old_);
    updater().setPatchesAllowed(false);
    EXPECT_TRUE(update(patched(test::zstdPatch(old_, new_), old_)));
    EXPECT_EQ(std::ranges::count(server_.requests(), "/cdn/files/VELK.dll.p1.zstpatch"), 0);
}

// Refused before decoding, by the size its frame states or for stating none.
TEST_F(PatchUpdateTest, PatchBombBounded) {
    const std::string zeros(64 << 20, '\0');
    const std::string stated = test::zstdPatch(old_, zeros);
    const std::string unstated = test::zstdPatch(old_, zeros, false);
    ASSERT_LT(std::max(stated.size(), unstated.size()), 64u * 1024);
    expectWholeFileInstead(
        {{stated, stated, "Patch result larger than the expected " + std::to_string(new_.size()) + " bytes)"},
         {unstated, unstated, "Patch does not state the size of its result)"}});
}

}  // namespace
}  // namespace velk::updater
