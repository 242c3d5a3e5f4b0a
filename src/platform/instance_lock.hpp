#pragma once

#include <cstdint>
#include <string>

// One updater run per installation: an exclusive lock keyed by the normalised installation
// directory, held while the object lives. The system releases it when the process ends,
// however it ends.
namespace velk::updater::platform {

enum class LockStatus { Acquired, Busy, Failed };

class InstanceLock {
public:
    // Tries once, without waiting. Busy when another holder, in this process or any
    // other, has the lock of the same installation.
    explicit InstanceLock(const std::string& installDirectory);
    ~InstanceLock();
    InstanceLock(const InstanceLock&) = delete;
    InstanceLock& operator=(const InstanceLock&) = delete;

    LockStatus status() const { return status_; }

private:
    LockStatus status_ = LockStatus::Failed;
    std::intptr_t handle_ = -1;  // the lock file's descriptor or handle
};

// The lock file's name for a normalised installation directory: a hash of its text, so
// that any path maps to one short, valid name.
std::string instanceLockFileName(const std::string& normalisedDirectory);

}  // namespace velk::updater::platform
