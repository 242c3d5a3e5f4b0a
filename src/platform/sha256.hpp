#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

namespace velk::updater::platform {

using Sha256Digest = std::array<std::uint8_t, 32>;

// Incremental SHA-256 through the system's implementation, which uses the processor's
// SHA instructions where it has them. Feed bytes with update(), then call finish() once.
class Sha256 {
  public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256&) = delete;
    Sha256& operator=(const Sha256&) = delete;

    // False when the system's hash could not be started; update() and finish() then fail too.
    bool ready() const;
    bool update(const void* data, std::size_t size);
    // The digest of everything fed so far; nothing when the system reported a failure.
    std::optional<Sha256Digest> finish();

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

// The digest of one block of memory.
std::optional<Sha256Digest> sha256Of(const void* data, std::size_t size);

}  // namespace velk::updater::platform
