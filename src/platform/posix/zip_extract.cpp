#include "platform/zip_extract.hpp"

#include <archive.h>
#include <archive_entry.h>

#include <filesystem>
#include <fstream>
#include <memory>

namespace velk::updater::platform {
namespace {

namespace fs = std::filesystem;

using ReadArchive = std::unique_ptr<archive, decltype(&archive_read_free)>;

// Only plain files and folders with relative paths that stay below the archive's root.
bool isSafeEntry(archive_entry* entry) {
    const char* name = archive_entry_pathname(entry);
    if (name == nullptr || *name == '\0') return false;
    const auto type = archive_entry_filetype(entry);
    if ((type != AE_IFREG && type != AE_IFDIR) || archive_entry_hardlink(entry) != nullptr) return false;
    const fs::path path(name);
    if (path.is_absolute() || path.has_root_name() || path.has_root_directory()) return false;
    for (const auto& part : path) {
        if (part == "..") return false;
    }
    return true;
}

bool isWanted(archive_entry* entry, const std::string& entryName) {
    return archive_entry_filetype(entry) == AE_IFREG &&
           fs::path(archive_entry_pathname(entry)).filename().string() == entryName;
}

// Copies the current entry's data, at most `maxBytes` of it when that is above 0.
ZipEntryStatus copyEntry(archive* in, const std::string& outputPath, std::uint64_t maxBytes) {
    std::ofstream out(outputPath, std::ios::binary | std::ios::trunc);
    if (!out.is_open()) return ZipEntryStatus::Unreadable;
    std::uint64_t written = 0;
    char buffer[64 * 1024];
    for (;;) {
        const la_ssize_t read = archive_read_data(in, buffer, sizeof buffer);
        if (read == 0) break;
        if (read < 0) return ZipEntryStatus::Unreadable;
        written += static_cast<std::uint64_t>(read);
        if (maxBytes > 0 && written > maxBytes) return ZipEntryStatus::TooLarge;
        out.write(buffer, read);
        if (!out) return ZipEntryStatus::Unreadable;
    }
    out.close();
    return out ? ZipEntryStatus::Extracted : ZipEntryStatus::Unreadable;
}

ZipEntryStatus scan(archive* in, const std::string& entryName, const std::string& outputPath,
                    std::uint64_t maxBytes) {
    ZipEntryStatus found = ZipEntryStatus::NotFound;
    archive_entry* entry = nullptr;
    int status = ARCHIVE_OK;
    // Every header is read, so an unsafe entry anywhere refuses the archive; only the
    // wanted entry's data is ever written.
    while ((status = archive_read_next_header(in, &entry)) == ARCHIVE_OK) {
        if (!isSafeEntry(entry)) return ZipEntryStatus::Unreadable;
        if (found != ZipEntryStatus::NotFound || !isWanted(entry, entryName)) continue;
        found = copyEntry(in, outputPath, maxBytes);
        if (found != ZipEntryStatus::Extracted) return found;
    }
    return status == ARCHIVE_EOF ? found : ZipEntryStatus::Unreadable;
}

}  // namespace

ZipEntryStatus extractZipEntry(const std::string& zipPath, const std::string& entryName,
                               const std::string& outputPath, std::uint64_t maxBytes) {
    ReadArchive in(archive_read_new(), archive_read_free);
    archive_read_support_format_zip(in.get());
    if (archive_read_open_filename(in.get(), zipPath.c_str(), 1 << 16) != ARCHIVE_OK) {
        return ZipEntryStatus::Unreadable;
    }
    const ZipEntryStatus status = scan(in.get(), entryName, outputPath, maxBytes);
    if (status != ZipEntryStatus::Extracted) {
        std::error_code ignored;
        fs::remove(outputPath, ignored);
    }
    return status;
}

}  // namespace velk::updater::platform
