#include "platform/memory_block.hpp"

#include <windows.h>

#include <string>

#include "platform/elevation.hpp"
#include "platform/win32/handles.hpp"

namespace velk::updater::platform {

bool MemoryBlock::allocate(std::size_t size) {
    release();
    if (size == 0) return true;
    void* memory = VirtualAlloc(nullptr, size, MEM_COMMIT | MEM_RESERVE, PAGE_READWRITE);
    if (memory == nullptr) return false;
    data_ = static_cast<char*>(memory);
    size_ = size;
    return true;
}

void MemoryBlock::release() {
    if (data_ != nullptr) VirtualFree(data_, 0, MEM_RELEASE);
    data_ = nullptr;
    size_ = 0;
}

bool MappedFile::open(const std::string& path, std::string& error) {
    close();
    const win32::UniqueHandle file(CreateFileW(utf8ToWide(path).c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr,
                                               OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    LARGE_INTEGER size{};
    if (!file || GetFileType(file.get()) != FILE_TYPE_DISK ||
        !GetFileSizeEx(file.get(), &size)) {
        error = "Cannot open " + path + " (error " + std::to_string(GetLastError()) + ")";
        return false;
    }
    if (size.QuadPart == 0) return true;
    // The mapping object keeps the file; the handle is not needed once it exists.
    HANDLE mapping = CreateFileMappingW(file.get(), nullptr, PAGE_READONLY, 0, 0, nullptr);
    const void* view = mapping != nullptr ? MapViewOfFile(mapping, FILE_MAP_READ, 0, 0, 0) : nullptr;
    if (view == nullptr) {
        error = "Cannot map " + path + " (error " + std::to_string(GetLastError()) + ")";
        if (mapping != nullptr) CloseHandle(mapping);
        return false;
    }
    data_ = static_cast<const char*>(view);
    size_ = static_cast<std::size_t>(size.QuadPart);
    mapping_ = mapping;
    return true;
}

void MappedFile::close() {
    if (data_ != nullptr) UnmapViewOfFile(data_);
    if (mapping_ != nullptr) CloseHandle(static_cast<HANDLE>(mapping_));
    data_ = nullptr;
    size_ = 0;
    mapping_ = nullptr;
}

}  // namespace velk::updater::platform
