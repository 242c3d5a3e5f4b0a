#include "platform/zip_extract.hpp"

#include <windows.h>
#include <shldisp.h>

namespace velk::updater::platform {
namespace {

// {13709620-C279-11CE-A49E-444553540000}: Shell.Application
const CLSID kShellApplication = {0x13709620, 0xC279, 0x11CE, {0xA4, 0x9E, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};
// {D8F015C0-C278-11CE-A49E-444553540000}: IShellDispatch
const IID kShellDispatch = {0xD8F015C0, 0xC278, 0x11CE, {0xA4, 0x9E, 0x44, 0x45, 0x53, 0x54, 0x00, 0x00}};

constexpr long kCopyOptions = 528;  // FOF_NOCONFIRMMKDIR | FOF_NOCONFIRMATION

// A BSTR variant from narrow text in the ANSI code page.
VARIANT bstrVariant(const std::string& text) {
    VARIANT value;
    VariantInit(&value);
    const int length = MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
    BSTR bstr = SysAllocStringLen(nullptr, static_cast<UINT>(length));
    MultiByteToWideChar(CP_ACP, 0, text.data(), static_cast<int>(text.size()), bstr, length);
    value.vt = VT_BSTR;
    value.bstrVal = bstr;
    return value;
}

bool copyItems(IShellDispatch* shell, VARIANT& destination, VARIANT& source) {
    Folder* target = nullptr;
    Folder* zip = nullptr;
    bool done = false;
    if (SUCCEEDED(shell->NameSpace(destination, &target)) && target != nullptr &&
        SUCCEEDED(shell->NameSpace(source, &zip)) && zip != nullptr) {
        FolderItems* items = nullptr;
        if (SUCCEEDED(zip->Items(&items)) && items != nullptr) {
            VARIANT what;
            VariantInit(&what);
            what.vt = VT_DISPATCH;
            what.pdispVal = items;
            VARIANT options;
            VariantInit(&options);
            options.vt = VT_I4;
            options.lVal = kCopyOptions;
            done = SUCCEEDED(target->CopyHere(what, options));
            items->Release();
        }
    }
    if (zip != nullptr) zip->Release();
    if (target != nullptr) target->Release();
    return done;
}

}  // namespace

bool extractZip(const std::string& zipPath, const std::string& destination) {
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) return false;
    bool done = false;
    IShellDispatch* shell = nullptr;
    if (SUCCEEDED(CoCreateInstance(kShellApplication, nullptr, CLSCTX_INPROC_SERVER, kShellDispatch,
                                   reinterpret_cast<void**>(&shell)))) {
        VARIANT destinationVariant = bstrVariant(destination);
        VARIANT sourceVariant = bstrVariant(zipPath);
        done = copyItems(shell, destinationVariant, sourceVariant);
        shell->Release();
        VariantClear(&destinationVariant);
        VariantClear(&sourceVariant);
    }
    CoUninitialize();
    return done;
}

}  // namespace velk::updater::platform
