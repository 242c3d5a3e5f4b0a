#include "platform/zip_extract.hpp"

#include <windows.h>
#include <shldisp.h>

#include "platform/win32/handles.hpp"

namespace velk::updater::platform {
namespace {

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

bool copyItems(IShellDispatch* shell, Variant& destination, Variant& source) {
    ComPtr<Folder> target;
    ComPtr<Folder> zip;
    if (FAILED(shell->NameSpace(destination.get(), target.put())) || !target) return false;
    if (FAILED(shell->NameSpace(source.get(), zip.put())) || !zip) return false;
    FolderItems* items = nullptr;
    if (FAILED(zip.get()->Items(&items)) || items == nullptr) return false;
    Variant what;  // owns the items from here on
    what.get().vt = VT_DISPATCH;
    what.get().pdispVal = items;
    Variant options;
    options.get().vt = VT_I4;
    options.get().lVal = kCopyOptions;
    return SUCCEEDED(target.get()->CopyHere(what.get(), options.get()));
}

}  // namespace

bool extractZip(const std::string& zipPath, const std::string& destination) {
    const ComApartment apartment;
    if (!apartment) return false;
    ComPtr<IShellDispatch> shell;
    if (FAILED(CoCreateInstance(kShellApplication, nullptr, CLSCTX_INPROC_SERVER, kShellDispatch,
                                reinterpret_cast<void**>(shell.put())))) {
        return false;
    }
    Variant destinationVariant;
    Variant sourceVariant;
    setBstr(destinationVariant, destination);
    setBstr(sourceVariant, zipPath);
    return copyItems(shell.get(), destinationVariant, sourceVariant);
}

}  // namespace velk::updater::platform
