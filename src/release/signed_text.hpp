#pragma once

#include <string>

#include "release/manifest.hpp"

namespace velk::updater {

// The text a manifest signature covers: version, build, commit, then name, digest and
// decimal size of every file in order, without separators. The publisher signs exactly
// this text and the verifier checks it; neither forms it another way.
std::string signedManifestText(const Manifest& manifest);

}  // namespace velk::updater
