// velk_publish: turns a release directory into a published release that the updater can
// read: <out>/manifest.json (or manifest-<channel>.json), the files under <out>/files/,
// and optionally a zip archive beside each file. `velk_publish --help` lists the options.
//
// Entries get the file's name, its size and SHA-256, its path below the release directory
// as target path, and the URL "files/<path>" (absolute when --url-base is given). The
// manifest carries its channel, an expiry and a rollout share, and is always signed over
// the product's signed text: with the Ed25519 seed in each KEYFILE (32 bytes, base64;
// default velk_release_ed25519.key in the working directory, made on first use and kept, so
// every release is signed by the key the updater pins), or with an RSA private key in PEM
// form. The public keys to pin (VELK_RELEASE_PUBLIC_KEY or VELK_RELEASE_RSA_PUBLIC_KEY) are
// printed.
//
// With --delta-from (a release directory or a published site, repeatable), every file that
// differs from its copy there also gets a zstd patch from that copy, when the patch is under
// half the file: "files/<path>.<first 16 hex digits of the old digest>.zstpatch", listed on
// the entry with the old copy's SHA-256 and the patch's size and SHA-256, and signed.

#include <archive.h>
#include <archive_entry.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>
#include <sodium.h>
#include <zstd.h>

#include <algorithm>
#include <chrono>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <optional>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <vector>

#include "release/manifest.hpp"
#include "release/signed_text.hpp"

namespace {

namespace fs = std::filesystem;
using json = nlohmann::ordered_json;

struct Options {
    fs::path release;
    fs::path out;
    std::string version;
    std::string build;
    std::string commit;
    std::string channel = "stable";
    std::string minimumVersion;
    std::string urlBase;
    bool zip = false;
    bool backup = false;
    std::vector<std::string> ed25519SeedFiles;  // none given: the default key file
    std::string rsaKeyFile;
    int rollout = 100;
    bool rolloutGiven = false;
    long expiresInDays = 30;
    fs::path resign;  // a published site whose manifest is signed again
    std::vector<fs::path> deltaFrom;  // earlier releases to make patches from
    bool printPublicKey = false;
    bool help = false;
};

constexpr const char* kDefaultSeedFile = "velk_release_ed25519.key";

constexpr const char* kUsage =
    "usage: velk_publish --release DIR --out DIR --version V [--build N] [--commit C]\n"
    "                    [--channel NAME] [--minimum-version V] [--url-base URL] [--zip] [--backup]\n"
    "                    [--rollout PERCENT] [--expires-in DAYS] [--delta-from DIR_OR_SITE]...\n"
    "                    [--sign-ed25519 KEYFILE]... | [--sign-rsa KEY.pem]\n"
    "       velk_publish --resign SITE [--channel NAME] [--expires-in DAYS] [--rollout PERCENT]\n"
    "                    [--sign-ed25519 KEYFILE]... | [--sign-rsa KEY.pem]\n"
    "       velk_publish [--sign-ed25519 KEYFILE]... | [--sign-rsa KEY.pem] --print-public-key\n"
    "\n"
    "  --rollout PERCENT    share of installations that take the release, 0-100 (default 100);\n"
    "                       0 halts a release where it is, raising it keeps those already in\n"
    "  --expires-in DAYS    the signed manifest expires after DAYS days (default 30); pinned\n"
    "                       updaters refuse it afterwards, so re-sign before then\n"
    "  --delta-from DIR     an earlier release (its directory or published site): each changed\n"
    "                       file gets a patch from its copy there when under half its size\n"
    "  --resign SITE        sign SITE's manifest again with a new expiry (and share, if given),\n"
    "                       without touching its files\n"
    "  --sign-ed25519 FILE  an Ed25519 seed file; repeat it to sign with several keys\n"
    "                       (default velk_release_ed25519.key, made on first use)\n"
    "  --sign-rsa KEY.pem   sign with an RSA key instead\n"
    "  -h, --help           this text\n";

struct Entry {
    std::string name;
    std::string relative;  // below the release directory, with "/"
    std::uintmax_t size = 0;
    std::string sha256;
};

[[noreturn]] void fail(const std::string& message) { throw std::runtime_error(message); }

int wholeNumber(const std::string& text, long low, long high, const std::string& option) {
    std::size_t used = 0;
    long value = 0;
    try {
        value = std::stol(text, &used);
    } catch (const std::exception&) {
        used = 0;
    }
    if (used == 0 || used != text.size() || value < low || value > high) {
        fail(option + " takes a whole number from " + std::to_string(low) + " to " + std::to_string(high));
    }
    return static_cast<int>(value);
}

bool parseArgs(int argc, char* argv[], Options& o) {
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        auto value = [&]() -> std::string {
            if (i + 1 >= argc) fail("missing value for " + arg);
            return argv[++i];
        };
        if (arg == "--help" || arg == "-h") o.help = true;
        else if (arg == "--release") o.release = value();
        else if (arg == "--out") o.out = value();
        else if (arg == "--version") o.version = value();
        else if (arg == "--build") o.build = value();
        else if (arg == "--commit") o.commit = value();
        else if (arg == "--channel") o.channel = value();
        else if (arg == "--minimum-version") o.minimumVersion = value();
        else if (arg == "--url-base") o.urlBase = value();
        else if (arg == "--sign-ed25519") o.ed25519SeedFiles.push_back(value());
        else if (arg == "--rollout") {
            o.rollout = wholeNumber(value(), 0, 100, "--rollout");
            o.rolloutGiven = true;
        } else if (arg == "--expires-in") o.expiresInDays = wholeNumber(value(), -36500, 36500, "--expires-in");
        else if (arg == "--resign") o.resign = value();
        else if (arg == "--delta-from") o.deltaFrom.push_back(value());
        else if (arg == "--sign-rsa") o.rsaKeyFile = value();
        else if (arg == "--zip") o.zip = true;
        else if (arg == "--backup") o.backup = true;
        else if (arg == "--print-public-key") o.printPublicKey = true;
        else return false;
    }
    if (o.ed25519SeedFiles.empty()) o.ed25519SeedFiles.push_back(kDefaultSeedFile);
    if (o.channel.empty()) o.channel = "stable";  // as the updater asks for it
    return o.help || o.printPublicKey || !o.resign.empty() || (!o.release.empty() && !o.out.empty() && !o.version.empty());
}

std::string toHex(const unsigned char* bytes, std::size_t length) {
    static const char* digits = "0123456789abcdef";
    std::string hex;
    for (std::size_t i = 0; i < length; ++i) {
        hex += digits[bytes[i] >> 4];
        hex += digits[bytes[i] & 15];
    }
    return hex;
}

std::string base64(const std::string& bytes) {
    std::string text(sodium_base64_encoded_len(bytes.size(), sodium_base64_VARIANT_ORIGINAL), '\0');
    sodium_bin2base64(text.data(), text.size(), reinterpret_cast<const unsigned char*>(bytes.data()),
                      bytes.size(), sodium_base64_VARIANT_ORIGINAL);
    text.resize(text.find('\0'));
    return text;
}

std::string sha256File(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    EVP_DigestInit_ex(ctx.get(), EVP_sha256(), nullptr);
    std::vector<char> buffer(1 << 16);
    while (in.read(buffer.data(), static_cast<std::streamsize>(buffer.size())) || in.gcount() > 0) {
        EVP_DigestUpdate(ctx.get(), buffer.data(), static_cast<std::size_t>(in.gcount()));
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    EVP_DigestFinal_ex(ctx.get(), digest, &length);
    return toHex(digest, length);
}

std::vector<Entry> collect(const fs::path& release) {
    std::vector<Entry> entries;
    for (const auto& item : fs::recursive_directory_iterator(release)) {
        if (!item.is_regular_file()) continue;
        Entry entry;
        entry.name = item.path().filename().string();
        entry.relative = fs::relative(item.path(), release).generic_string();
        entry.size = item.file_size();
        entry.sha256 = sha256File(item.path());
        entries.push_back(entry);
    }
    std::sort(entries.begin(), entries.end(), [](const Entry& a, const Entry& b) { return a.relative < b.relative; });
    return entries;
}

// A zip beside the copy, holding the file under its own name.
void writeZip(const fs::path& source, const fs::path& zipPath, const std::string& entryName) {
    std::unique_ptr<archive, decltype(&archive_write_free)> zip(archive_write_new(), archive_write_free);
    archive_write_set_format_zip(zip.get());
    if (archive_write_open_filename(zip.get(), zipPath.c_str()) != ARCHIVE_OK) fail("cannot write " + zipPath.string());
    std::unique_ptr<archive_entry, decltype(&archive_entry_free)> entry(archive_entry_new(), archive_entry_free);
    archive_entry_set_pathname(entry.get(), entryName.c_str());
    archive_entry_set_size(entry.get(), static_cast<la_int64_t>(fs::file_size(source)));
    archive_entry_set_filetype(entry.get(), AE_IFREG);
    archive_entry_set_perm(entry.get(), 0644);
    archive_write_header(zip.get(), entry.get());
    std::ifstream in(source, std::ios::binary);
    std::vector<char> buffer(1 << 16);
    while (in.read(buffer.data(), static_cast<std::streamsize>(buffer.size())) || in.gcount() > 0) {
        archive_write_data(zip.get(), buffer.data(), static_cast<std::size_t>(in.gcount()));
    }
    if (archive_write_close(zip.get()) != ARCHIVE_OK) fail("cannot finish " + zipPath.string());
}

std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) fail("cannot read " + path);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) text.pop_back();
    return text;
}

struct Signed {
    std::string algorithm;
    std::string publicKey;  // base64
    std::string signature;  // base64
};

// The signing key's seed, made once when the key file does not exist yet. The file is the
// vendor's secret: readable by its owner only, and never to be committed.
void loadOrCreateSeed(const std::string& seedFile, unsigned char (&seed)[crypto_sign_SEEDBYTES]) {
    if (!fs::exists(seedFile)) {
        randombytes_buf(seed, sizeof seed);
        {
            std::ofstream out(seedFile, std::ios::binary);
            out << base64(std::string(reinterpret_cast<char*>(seed), sizeof seed)) << "\n";
            if (!out) fail("cannot write " + seedFile);
        }
        fs::permissions(seedFile, fs::perms::owner_read | fs::perms::owner_write);
        std::cerr << "Created release signing key " << seedFile << " (keep it secret, do not commit it)\n";
        return;
    }
    const std::string text = readText(seedFile);
    std::size_t length = 0;
    if (sodium_base642bin(seed, sizeof seed, text.c_str(), text.size(), nullptr, &length, nullptr,
                          sodium_base64_VARIANT_ORIGINAL) != 0 || length != sizeof seed) {
        fail("the Ed25519 seed must be 32 bytes in base64");
    }
}

Signed signEd25519(const std::string& message, const std::string& seedFile) {
    unsigned char seed[crypto_sign_SEEDBYTES];
    loadOrCreateSeed(seedFile, seed);
    unsigned char publicKey[crypto_sign_PUBLICKEYBYTES], secretKey[crypto_sign_SECRETKEYBYTES];
    crypto_sign_seed_keypair(publicKey, secretKey, seed);
    sodium_memzero(seed, sizeof seed);
    unsigned char signature[crypto_sign_BYTES];
    crypto_sign_detached(signature, nullptr, reinterpret_cast<const unsigned char*>(message.data()),
                         message.size(), secretKey);
    sodium_memzero(secretKey, sizeof secretKey);
    return {"Ed25519", base64(std::string(reinterpret_cast<char*>(publicKey), sizeof publicKey)),
            base64(std::string(reinterpret_cast<char*>(signature), sizeof signature))};
}

Signed signRsa(const std::string& message, const std::string& keyFile) {
    std::unique_ptr<FILE, decltype(&fclose)> file(fopen(keyFile.c_str(), "r"), fclose);
    if (!file) fail("cannot read " + keyFile);
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(PEM_read_PrivateKey(file.get(), nullptr, nullptr, nullptr),
                                                            EVP_PKEY_free);
    if (!key) fail("no private key in " + keyFile);
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    std::size_t length = 0;
    if (EVP_DigestSignInit(ctx.get(), nullptr, EVP_sha256(), nullptr, key.get()) != 1 ||
        EVP_DigestSign(ctx.get(), nullptr, &length, reinterpret_cast<const unsigned char*>(message.data()),
                       message.size()) != 1) {
        fail("cannot sign with " + keyFile);
    }
    std::string signature(length, '\0');
    EVP_DigestSign(ctx.get(), reinterpret_cast<unsigned char*>(signature.data()), &length,
                   reinterpret_cast<const unsigned char*>(message.data()), message.size());
    signature.resize(length);
    unsigned char* der = nullptr;
    const int derLength = i2d_PUBKEY(key.get(), &der);
    const std::string publicKey(reinterpret_cast<char*>(der), static_cast<std::size_t>(derLength));
    OPENSSL_free(der);
    return {"RSA-SHA256", base64(publicKey), base64(signature)};
}

std::string isoTime(std::time_t when) {
    std::tm utc{};
    gmtime_r(&when, &utc);
    char text[32];
    std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
    return text;
}

std::string isoNow() { return isoTime(std::time(nullptr)); }

std::string expiryFrom(const Options& o) { return isoTime(std::time(nullptr) + o.expiresInDays * 24 * 3600); }

// One signature per key: the RSA key, or every Ed25519 seed file given.
std::vector<Signed> sign(const std::string& message, const Options& o) {
    if (!o.rsaKeyFile.empty()) return {signRsa(message, o.rsaKeyFile)};
    std::vector<Signed> signatures;
    for (const auto& seedFile : o.ed25519SeedFiles) signatures.push_back(signEd25519(message, seedFile));
    return signatures;
}

json signatureRecord(const Signed& sig) {
    return {{"algorithm", sig.algorithm}, {"public_key", sig.publicKey}, {"signature", sig.signature},
            {"timestamp", isoNow()}, {"signer", "velk_publish"}};
}

// The first signature where a single one is read, and all of them when several keys signed.
void putSignatures(json& document, const std::vector<Signed>& signatures) {
    document["signature"] = signatureRecord(signatures.front());
    document.erase("signatures");
    if (signatures.size() < 2) return;
    json all = json::array();
    for (const auto& sig : signatures) all.push_back(signatureRecord(sig));
    document["signatures"] = all;
}

std::string manifestName(const Options& o) {
    return o.channel == "stable" ? "manifest.json" : "manifest-" + o.channel + ".json";
}

std::string readBytes(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

// The zstd frame that rebuilds `target` with `base` as its prefix, made with the window the
// updater allows for these sizes; nothing when no window is allowed or the patch would not
// be under half the file.
std::optional<std::string> makePatch(const std::string& base, const std::string& target) {
    const std::uint32_t windowLog = velk::updater::patchWindowLog(base.size(), target.size());
    if (windowLog > velk::updater::kMaxPatchWindowLog) return std::nullopt;
    std::unique_ptr<ZSTD_CCtx, decltype(&ZSTD_freeCCtx)> encoder(ZSTD_createCCtx(), ZSTD_freeCCtx);
    ZSTD_CCtx_setParameter(encoder.get(), ZSTD_c_compressionLevel, 19);
    ZSTD_CCtx_setParameter(encoder.get(), ZSTD_c_windowLog, static_cast<int>(windowLog));
    ZSTD_CCtx_setParameter(encoder.get(), ZSTD_c_enableLongDistanceMatching, 1);
    ZSTD_CCtx_refPrefix(encoder.get(), base.data(), base.size());
    std::string patch(ZSTD_compressBound(target.size()), '\0');
    const std::size_t size = ZSTD_compress2(encoder.get(), patch.data(), patch.size(), target.data(), target.size());
    if (ZSTD_isError(size)) fail(std::string("cannot make a patch: ") + ZSTD_getErrorName(size));
    if (size * 2 >= target.size()) return std::nullopt;
    patch.resize(size);
    return patch;
}

// The file at `relative` in an earlier release: below files/ in a published site.
fs::path earlierCopy(const fs::path& source, const std::string& relative) {
    const bool site = fs::exists(source / "files") && fs::is_directory(source / "files");
    return site ? source / "files" / relative : source / relative;
}

// Patches for one entry from every earlier release that has another copy of it, written
// beside the published copy; each listed once per base.
std::vector<velk::updater::ManifestPatch> writePatches(const Options& o, const Entry& entry, const std::string& url) {
    std::vector<velk::updater::ManifestPatch> patches;
    std::string target;
    for (const auto& source : o.deltaFrom) {
        const fs::path old = earlierCopy(source, entry.relative);
        if (!fs::is_regular_file(old) || patches.size() >= velk::updater::kMaxPatchesPerFile) continue;
        const std::string fromSha256 = sha256File(old);
        const bool known = std::any_of(patches.begin(), patches.end(), [&](const auto& p) { return p.from_sha256 == fromSha256; });
        if (fromSha256 == entry.sha256 || known) continue;
        if (target.empty()) target = readBytes(o.release / entry.relative);
        const std::optional<std::string> patch = makePatch(readBytes(old), target);
        if (!patch) continue;
        const std::string suffix = "." + fromSha256.substr(0, 16) + ".zstpatch";
        const fs::path written = o.out / "files" / (entry.relative + suffix);
        std::ofstream(written, std::ios::binary) << *patch;
        patches.push_back({fromSha256, url + suffix, patch->size(), sha256File(written)});
    }
    return patches;
}

json patchesJson(const std::vector<velk::updater::ManifestPatch>& patches) {
    json list = json::array();
    for (const auto& patch : patches) {
        list.push_back({{"from_sha256", patch.from_sha256}, {"url", patch.url}, {"size", patch.size}, {"sha256", patch.sha256}});
    }
    return list;
}

// Through a sibling and a rename, so an update server never serves half a manifest.
void writeManifest(const fs::path& target, const json& document) {
    const fs::path sibling = target.string() + ".new";
    std::ofstream(sibling) << document.dump(2) << "\n";
    fs::rename(sibling, target);
}

void printPinSettings(const std::vector<Signed>& signatures) {
    std::string keys;
    for (const auto& sig : signatures) keys += (keys.empty() ? "" : ",") + sig.publicKey;
    const char* name = signatures.front().algorithm == "Ed25519" ? "VELK_RELEASE_PUBLIC_KEY" : "VELK_RELEASE_RSA_PUBLIC_KEY";
    std::cout << "Signed with " << signatures.size() << " " << signatures.front().algorithm
              << " key(s); pin them in the updater's build: -D" << name << "=" << keys << "\n";
}

void publish(const Options& o) {
    const auto entries = collect(o.release);
    if (entries.empty()) fail("no files in " + o.release.string());
    fs::create_directories(o.out / "files");

    json files = json::array();
    // The signature covers the product's own signed text of what is published.
    const std::string expires = expiryFrom(o);
    velk::updater::Manifest release;
    release.version = o.version;
    release.build_number = o.build;
    release.git_commit = o.commit;
    release.channel = o.channel;
    release.expires = expires;
    release.rollout_percentage = static_cast<std::uint32_t>(o.rollout);
    for (const auto& entry : entries) {
        const fs::path copy = o.out / "files" / entry.relative;
        fs::create_directories(copy.parent_path());
        fs::copy_file(o.release / entry.relative, copy, fs::copy_options::overwrite_existing);
        if (o.zip) writeZip(copy, copy.string() + ".zip", entry.name);
        const std::string url = (o.urlBase.empty() ? "" : o.urlBase + "/") + "files/" + entry.relative;
        velk::updater::ManifestFile file;
        file.name = entry.name;
        file.sha256 = entry.sha256;
        file.size = entry.size;
        file.patches = writePatches(o, entry, url);
        files.push_back({{"name", entry.name},
                         {"url", url},
                         {"size", entry.size},
                         {"sha256", entry.sha256},
                         {"target_path", entry.relative},
                         {"action", "replace"},
                         {"backup", o.backup},
                         {"critical", false},
                         {"restart_required", false}});
        if (!file.patches.empty()) files.back()["patches"] = patchesJson(file.patches);
        release.files.push_back(file);
    }

    const std::vector<Signed> signatures = sign(velk::updater::signedManifestText(release), o);
    json manifest = {{"version", o.version},          {"release_date", isoNow()},
                     {"build_number", o.build},       {"git_commit", o.commit},
                     {"channel", o.channel},          {"minimum_version", o.minimumVersion},
                     {"description", "VELK release " + o.version}, {"urgency", "normal"},
                     {"expires", expires},            {"rollout_percentage", o.rollout},
                     {"files", files}};
    json document = {{"manifest", manifest}};
    putSignatures(document, signatures);

    const fs::path target = o.out / manifestName(o);
    writeManifest(target, document);
    std::cout << "Published " << entries.size() << " files of version " << o.version << " to " << target.string() << "\n";
    printPinSettings(signatures);
}

// Signs a published manifest again with a new expiry (and share, when given); its files and
// entries stay as they are.
void resign(const Options& o) {
    const fs::path target = o.resign / manifestName(o);
    std::ifstream in(target, std::ios::binary);
    if (!in) fail("cannot read " + target.string());
    json document = json::parse(std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>()));
    in.close();
    if (!document.contains("manifest") || !document["manifest"].is_object()) fail("no manifest in " + target.string());
    document["manifest"]["expires"] = expiryFrom(o);
    if (o.rolloutGiven) document["manifest"]["rollout_percentage"] = o.rollout;
    // The text is signed as the updater will read it.
    const std::optional<velk::updater::Manifest> release = velk::updater::parseManifest(document.dump());
    if (!release) fail("not a manifest the updater can read: " + target.string());
    const std::vector<Signed> signatures = sign(velk::updater::signedManifestText(*release), o);
    putSignatures(document, signatures);
    writeManifest(target, document);
    std::cout << "Signed " << target.string() << " again; it expires on " << release->expires << "\n";
    printPinSettings(signatures);
}

}  // namespace

int main(int argc, char* argv[]) {
    Options options;
    try {
        if (!parseArgs(argc, argv, options)) {
            std::cerr << kUsage;
            return 2;
        }
        if (options.help) {
            std::cout << kUsage;
            return 0;
        }
        if (sodium_init() < 0) fail("libsodium failed to start");
        if (options.printPublicKey) {
            for (const auto& sig : sign("", options)) std::cout << sig.publicKey << "\n";
            return 0;
        }
        if (!options.resign.empty()) {
            resign(options);
            return 0;
        }
        publish(options);
        return 0;
    } catch (const std::exception& error) {
        std::cerr << "velk_publish: " << error.what() << "\n";
        return 1;
    }
}
