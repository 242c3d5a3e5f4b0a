#pragma once

namespace velk::updater::platform {

// Whether the kernel's copy refused the pair of files for good (other file systems on old
// kernels, special files), so that the copy goes through a bounded buffer instead.
bool copyIsUnsupported(int error);

}  // namespace velk::updater::platform
