#pragma once

#include <string>

#include "release/manifest.hpp"

namespace velk::updater {

// The text a manifest signature covers, version 2: a header line, then the version, build,
// commit, channel, expiry and rollout share, then each file's name, SHA-256 and decimal size
// in manifest order, then for each file with patches its place in the list and every
// patch's base digest, digest and size. Every field is "<name> <byte length> <value>\n", so no value can run
// into the next. The publisher signs exactly this text and the verifier checks it; neither
// forms it another way.
std::string signedManifestText(const Manifest& manifest);

}  // namespace velk::updater
