#include "platform/memory_block.hpp"

#include <utility>

namespace velk::updater::platform {

MemoryBlock::~MemoryBlock() { release(); }

MemoryBlock::MemoryBlock(MemoryBlock&& other) noexcept
    : data_(std::exchange(other.data_, nullptr)), size_(std::exchange(other.size_, 0)) {}

MemoryBlock& MemoryBlock::operator=(MemoryBlock&& other) noexcept {
    if (this != &other) {
        release();
        data_ = std::exchange(other.data_, nullptr);
        size_ = std::exchange(other.size_, 0);
    }
    return *this;
}

MappedFile::~MappedFile() { close(); }

}  // namespace velk::updater::platform
