#include "app/release_keys.hpp"

#include <sstream>

// The only place the pinned keys enter the program. A test program compiles this file
// again with test keys; it then defines the function and the library copy is not linked.
#ifndef VELK_RELEASE_PUBLIC_KEY
#define VELK_RELEASE_PUBLIC_KEY ""
#endif
#ifndef VELK_RELEASE_RSA_PUBLIC_KEY
#define VELK_RELEASE_RSA_PUBLIC_KEY ""
#endif
#ifndef VELK_RELEASE_THRESHOLD
#define VELK_RELEASE_THRESHOLD 1
#endif

namespace velk::updater {

ReleaseKeys pinnedReleaseKeys() {
    ReleaseKeys keys;
    // One or more Ed25519 keys, separated by commas (CMake checks their form).
    std::istringstream list(VELK_RELEASE_PUBLIC_KEY);
    for (std::string key; std::getline(list, key, ',');) {
        if (!key.empty()) keys.ed25519PublicKeys.push_back(key);
    }
    keys.rsaPublicKey = VELK_RELEASE_RSA_PUBLIC_KEY;
    keys.threshold = VELK_RELEASE_THRESHOLD;
    return keys;
}

}  // namespace velk::updater
