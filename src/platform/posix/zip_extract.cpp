#include "platform/zip_extract.hpp"

#include <archive.h>
#include <archive_entry.h>

#include <filesystem>
#include <memory>

namespace velk::updater::platform {
namespace {

namespace fs = std::filesystem;

using ReadArchive = std::unique_ptr<archive, decltype(&archive_read_free)>;
using WriteArchive = std::unique_ptr<archive, decltype(&archive_write_free)>;

// Only plain files and folders with relative paths that stay below the destination.
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

bool copyData(archive* in, archive* out) {
    const void* block = nullptr;
    std::size_t size = 0;
    la_int64_t offset = 0;
    for (;;) {
        const int status = archive_read_data_block(in, &block, &size, &offset);
        if (status == ARCHIVE_EOF) return true;
        if (status != ARCHIVE_OK || archive_write_data_block(out, block, size, offset) != ARCHIVE_OK) return false;
    }
}

}  // namespace

bool extractZip(const std::string& zipPath, const std::string& destination) {
    ReadArchive in(archive_read_new(), archive_read_free);
    archive_read_support_format_zip(in.get());
    if (archive_read_open_filename(in.get(), zipPath.c_str(), 1 << 16) != ARCHIVE_OK) return false;

    WriteArchive out(archive_write_disk_new(), archive_write_free);
    // Entry names are checked above and then made absolute below the destination, so
    // libarchive's own absolute-path guard cannot be used; the others stay on.
    archive_write_disk_set_options(out.get(), ARCHIVE_EXTRACT_SECURE_NODOTDOT | ARCHIVE_EXTRACT_SECURE_SYMLINKS |
                                                  ARCHIVE_EXTRACT_UNLINK);
    const fs::path root(destination);
    archive_entry* entry = nullptr;
    int status = ARCHIVE_OK;
    while ((status = archive_read_next_header(in.get(), &entry)) == ARCHIVE_OK) {
        if (!isSafeEntry(entry)) return false;
        const std::string target = (root / archive_entry_pathname(entry)).string();
        archive_entry_set_pathname(entry, target.c_str());
        if (archive_entry_filetype(entry) == AE_IFDIR) archive_entry_set_perm(entry, 0755);
        if (archive_entry_filetype(entry) == AE_IFREG) archive_entry_set_perm(entry, 0644);
        if (archive_write_header(out.get(), entry) != ARCHIVE_OK) return false;
        if (archive_entry_size(entry) > 0 && !copyData(in.get(), out.get())) return false;
        if (archive_write_finish_entry(out.get()) != ARCHIVE_OK) return false;
    }
    return status == ARCHIVE_EOF && archive_write_close(out.get()) == ARCHIVE_OK;
}

}  // namespace velk::updater::platform
