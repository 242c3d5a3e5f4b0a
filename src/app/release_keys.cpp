#include "app/release_keys.hpp"

// The only place the pinned keys enter the program. A test program compiles this file
// again with a test key; it then defines the function and the library copy is not linked.
#ifndef VELK_RELEASE_PUBLIC_KEY
#define VELK_RELEASE_PUBLIC_KEY ""
#endif
#ifndef VELK_RELEASE_RSA_PUBLIC_KEY
#define VELK_RELEASE_RSA_PUBLIC_KEY ""
#endif

namespace velk::updater {

ReleaseKeys pinnedReleaseKeys() { return {VELK_RELEASE_PUBLIC_KEY, VELK_RELEASE_RSA_PUBLIC_KEY}; }

}  // namespace velk::updater
