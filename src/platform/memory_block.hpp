#pragma once

#include <cstddef>
#include <string>

namespace velk::updater::platform {

// Large, short-lived buffers: memory of our own, and a read-only view of a file.

// Memory for a large, short-lived buffer (an installed copy, a patched file), taken from the
// system whole and given back whole. Where the system allows, every page is made present at
// once, which on a virtual machine is several times cheaper than one fault per page.
class MemoryBlock {
  public:
    MemoryBlock() = default;
    ~MemoryBlock();
    MemoryBlock(MemoryBlock&& other) noexcept;
    MemoryBlock& operator=(MemoryBlock&& other) noexcept;
    MemoryBlock(const MemoryBlock&) = delete;
    MemoryBlock& operator=(const MemoryBlock&) = delete;

    // Replaces the block by `size` zeroed bytes; false (and an empty block) when the system
    // has no room for them. A size of zero gives an empty block.
    bool allocate(std::size_t size);
    void release();

    char* data() { return data_; }
    const char* data() const { return data_; }
    std::size_t size() const { return size_; }

  private:
    char* data_ = nullptr;
    std::size_t size_ = 0;
};

// A read-only view of a whole regular file (an installed copy used as a patch's base),
// without copying it out of the system's cache. The file must not be truncated while it is
// viewed (Windows refuses that while a view exists).
class MappedFile {
  public:
    MappedFile() = default;
    ~MappedFile();
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    // Replaces the view by one of `path`; false with `error` set when it cannot be opened or
    // is not a regular file. An empty file gives an empty view.
    bool open(const std::string& path, std::string& error);
    void close();

    const char* data() const { return data_; }
    std::size_t size() const { return size_; }

  private:
    const char* data_ = nullptr;
    std::size_t size_ = 0;
    void* mapping_ = nullptr;  // the Windows mapping object
};

}  // namespace velk::updater::platform
