#pragma once

#include "release/manifest_verifier.hpp"

// The verifier's state, shared by verification and the version analysis.
namespace velk::updater {

struct ManifestVerifier::Impl {
    ManifestVerifierConfig config;
    Logger& logger;
    std::optional<Manifest> currentManifest;
};

}  // namespace velk::updater
