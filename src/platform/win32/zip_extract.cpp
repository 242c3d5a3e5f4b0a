#include "platform/zip_extract.hpp"

#include <windows.h>
#include <shldisp.h>

#include <filesystem>

#include "platform/elevation.hpp"
#include "platform/win32/handles.hpp"

// The shell's zip folders unpack archives here. They copy whole items only, so the entry
// is first found by name and its size checked, then copied alone into a fresh folder, and
// its copy measured again before it is moved to the output.
namespace velk::updater::platform {
namespace {

namespace fs = std::filesystem;

using win32::ComApartment;
using win32::ComPtr;
using win32::Variant;

// {13709620-C279-11CE-A49E-444553540000}: Shell.Application
const CLSID kShellApplication = {0x13709620, 0xC279, 0x11CE, {0xA4, 0x9E, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};
// {D8F015C0-C278-11CE-A49E-444553540000}: IShellDispatch
const IID kShellDispatch = {0xD8F015C0, 0xC278, 0x11CE, {0xA4, 0x9E, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};

constexpr long kCopyOptions = 528;  // FOF_NOCONFIRMMKDIR | FOF_NOCONFIRMATION

// Makes `value` a BSTR of narrow text in the ANSI code page.
void setBstr(Variant& value, const std::string& text) {
    const int length = MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    BSTR bstr = SysAllocStringLen(nullptr, static_cast<UINT>(length));
    MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), bstr, length);
    value.get().vt = VT_BSTR;
    value.get().bstrVal = bstr;
}

// The last name of an item's path inside the archive (display names may hide extensions).
std::wstring itemFileName(FolderItem* item) {
    BSTR path = nullptr;
    if (FAILED(item->get_Path(&path)) || path == nullptr) return {};
    const std::wstring name = fs::path(std::wstring(path, SysStringLen(path))).filename().wstring();
    SysFreeString(path);
    return name;
}

// The first regular file named `wanted` in `folder` or below it; the caller releases it.
FolderItem* findItem(Folder* folder, const std::wstring& wanted) {
    ComPtr<FolderItems> items;
    long count = 0;
    if (FAILED(folder->Items(items.put())) || !items || FAILED(items.get()->get_Count(&count))) return nullptr;
    for (long index = 0; index < count; ++index) {
        Variant position;
        position.get().vt = VT_I4;
        position.get().lVal = index;
        FolderItem* item = nullptr;
        if (FAILED(items.get()->Item(position.get(), &item)) || item == nullptr) continue;
        ComPtr<FolderItem> owned(item);
        VARIANT_BOOL isFolder = VARIANT_FALSE;
        owned.get()->get_IsFolder(&isFolder);
        if (isFolder == VARIANT_FALSE) {
            if (itemFileName(owned.get()) == wanted) return owned.release();
            continue;
        }
        IDispatch* inner = nullptr;
        if (FAILED(owned.get()->get_GetFolder(&inner)) || inner == nullptr) continue;
        ComPtr<IDispatch> innerOwned(inner);
        ComPtr<Folder> subfolder;
        if (FAILED(inner->QueryInterface(IID_Folder, reinterpret_cast<void**>(subfolder.put())))) continue;
        if (FolderItem* found = findItem(subfolder.get(), wanted)) return found;
    }
    return nullptr;
}

ZipEntryStatus copyItem(IShellDispatch* shell, FolderItem* item, const fs::path& folder) {
    Variant destination;
    setBstr(destination, folder.string());
    ComPtr<Folder> target;
    if (FAILED(shell->NameSpace(destination.get(), target.put())) || !target) return ZipEntryStatus::Unreadable;
    Variant what;  // owns a reference of its own
    item->AddRef();
    what.get().vt = VT_DISPATCH;
    what.get().pdispVal = item;
    Variant options;
    options.get().vt = VT_I4;
    options.get().lVal = kCopyOptions;
    return SUCCEEDED(target.get()->CopyHere(what.get(), options.get())) ? ZipEntryStatus::Extracted
                                                                        : ZipEntryStatus::Unreadable;
}

ZipEntryStatus extract(const std::string& zipPath, const std::string& entryName, const fs::path& output,
                       std::uint64_t maxBytes) {
    const ComApartment apartment;
    if (!apartment) return ZipEntryStatus::Unreadable;
    ComPtr<IShellDispatch> shell;
    if (FAILED(CoCreateInstance(kShellApplication, nullptr, CLSCTX_INPROC_SERVER, kShellDispatch,
                                reinterpret_cast<void**>(shell.put())))) {
        return ZipEntryStatus::Unreadable;
    }
    Variant source;
    setBstr(source, zipPath);
    ComPtr<Folder> zip;
    if (FAILED(shell.get()->NameSpace(source.get(), zip.put())) || !zip) return ZipEntryStatus::Unreadable;
    ComPtr<FolderItem> item(findItem(zip.get(), utf8ToWide(entryName)));
    if (!item) return ZipEntryStatus::NotFound;
    long size = 0;
    if (maxBytes > 0 && SUCCEEDED(item.get()->get_Size(&size)) && static_cast<std::uint64_t>(size) > maxBytes) {
        return ZipEntryStatus::TooLarge;
    }

    const fs::path folder = output.string() + ".unzdir";
    std::error_code error;
    fs::remove_all(folder, error);
    fs::create_directories(folder, error);
    ZipEntryStatus status = copyItem(shell.get(), item.get(), folder);
    const fs::path copied = folder / fs::path(utf8ToWide(entryName));
    if (status == ZipEntryStatus::Extracted) {
        const auto copiedSize = fs::file_size(copied, error);
        if (error) status = ZipEntryStatus::Unreadable;
        else if (maxBytes > 0 && copiedSize > maxBytes) status = ZipEntryStatus::TooLarge;
        else if (!MoveFileExW(copied.wstring().c_str(), output.wstring().c_str(), MOVEFILE_REPLACE_EXISTING)) {
            status = ZipEntryStatus::Unreadable;
        }
    }
    fs::remove_all(folder, error);
    return status;
}

}  // namespace

ZipEntryStatus extractZipEntry(const std::string& zipPath, const std::string& entryName,
                               const std::string& outputPath, std::uint64_t maxBytes) {
    const ZipEntryStatus status = extract(zipPath, entryName, fs::path(utf8ToWide(outputPath)), maxBytes);
    if (status != ZipEntryStatus::Extracted) {
        std::error_code ignored;
        fs::remove(fs::path(utf8ToWide(outputPath)), ignored);
    }
    return status;
}

}  // namespace velk::updater::platform
