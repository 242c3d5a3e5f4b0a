#include "platform/private_files.hpp"

#include <windows.h>
#include <aclapi.h>
#include <sddl.h>

#include <utility>

#include "platform/elevation.hpp"
#include "platform/win32/handles.hpp"

namespace velk::updater::platform {
namespace {

// Full control for Administrators and SYSTEM, inherited by what is created inside, and
// nothing inherited from the parent.
constexpr const wchar_t* kPrivateAccess = L"D:P(A;OICI;FA;;;BA)(A;OICI;FA;;;SY)";

bool systemFailure(std::string& error, const std::string& what) {
    error = what + ": " + formatSystemError(GetLastError());
    return false;
}

}  // namespace

bool preparePrivateFolder(const std::string& path, std::string& error) {
    win32::LocalMemory<void> descriptor;
    if (!ConvertStringSecurityDescriptorToSecurityDescriptorW(kPrivateAccess, SDDL_REVISION_1, descriptor.put(),
                                                              nullptr)) {
        return systemFailure(error, "cannot form the access list of " + path);
    }
    const std::wstring wide = utf8ToWide(path);
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), descriptor.get(), FALSE};
    if (!CreateDirectoryW(wide.c_str(), &attributes)) {
        if (GetLastError() != ERROR_ALREADY_EXISTS) return systemFailure(error, "cannot create " + path);
        // An earlier run's folder: it must be a real folder, and gets the same access again.
        const DWORD found = GetFileAttributesW(wide.c_str());
        if (found == INVALID_FILE_ATTRIBUTES || (found & FILE_ATTRIBUTE_DIRECTORY) == 0 ||
            (found & FILE_ATTRIBUTE_REPARSE_POINT) != 0) {
            error = path + " is not a folder";
            return false;
        }
        BOOL present = FALSE, defaulted = FALSE;
        PACL dacl = nullptr;
        GetSecurityDescriptorDacl(descriptor.get(), &present, &dacl, &defaulted);
        std::wstring name = wide;
        const DWORD status = SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT,
                                                   DACL_SECURITY_INFORMATION | PROTECTED_DACL_SECURITY_INFORMATION,
                                                   nullptr, nullptr, dacl, nullptr);
        if (status != ERROR_SUCCESS) {
            error = "cannot close " + path + ": " + formatSystemError(status);
            return false;
        }
    }
    SetFileAttributesW(wide.c_str(), FILE_ATTRIBUTE_HIDDEN);
    return true;
}

// An empty, unprotected access list leaves the file with what its folder passes down.
bool adoptFolderAccess(const std::string& path, const std::string&, std::string& error) {
    ACL empty{};
    if (!InitializeAcl(&empty, sizeof(empty), ACL_REVISION)) return systemFailure(error, "cannot form an access list");
    std::wstring name = utf8ToWide(path);
    const DWORD status = SetNamedSecurityInfoW(name.data(), SE_FILE_OBJECT,
                                               DACL_SECURITY_INFORMATION | UNPROTECTED_DACL_SECURITY_INFORMATION,
                                               nullptr, nullptr, &empty, nullptr);
    if (status != ERROR_SUCCESS) {
        error = "cannot set the access of " + path + ": " + formatSystemError(status);
        return false;
    }
    return true;
}

struct OutputFile::Impl {
    win32::UniqueHandle file;
};

OutputFile::OutputFile() : impl_(std::make_unique<Impl>()) {}

OutputFile::~OutputFile() = default;

bool OutputFile::open(const std::string& path, Mode mode, std::string& error) {
    const DWORD disposition = mode == Mode::CreateNew ? CREATE_NEW : OPEN_EXISTING;
    impl_->file = win32::UniqueHandle(CreateFileW(utf8ToWide(path).c_str(), GENERIC_WRITE, FILE_SHARE_READ, nullptr,
                                                  disposition, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_OPEN_REPARSE_POINT,
                                                  nullptr));
    if (!impl_->file) return systemFailure(error, "cannot open " + path);
    BY_HANDLE_FILE_INFORMATION information{};
    if (!GetFileInformationByHandle(impl_->file.get(), &information) ||
        (information.dwFileAttributes & (FILE_ATTRIBUTE_REPARSE_POINT | FILE_ATTRIBUTE_DIRECTORY)) != 0) {
        impl_->file.reset();
        error = path + " is not a file";
        return false;
    }
    LARGE_INTEGER none{};
    return SetFilePointerEx(impl_->file.get(), none, nullptr, FILE_END) || systemFailure(error, "cannot seek " + path);
}

bool OutputFile::write(const void* data, std::size_t size) {
    const char* next = static_cast<const char*>(data);
    while (size > 0) {
        const DWORD block = size > (1u << 30) ? (1u << 30) : static_cast<DWORD>(size);
        DWORD put = 0;
        if (!WriteFile(impl_->file.get(), next, block, &put, nullptr) || put == 0) return false;
        next += put;
        size -= put;
    }
    return true;
}

bool OutputFile::truncate() {
    LARGE_INTEGER start{};
    return SetFilePointerEx(impl_->file.get(), start, nullptr, FILE_BEGIN) && SetEndOfFile(impl_->file.get());
}

bool OutputFile::close() {
    if (!impl_->file) return true;
    return CloseHandle(impl_->file.release()) != FALSE;
}

}  // namespace velk::updater::platform
