#pragma once

#include "manifest/manifest_verifier.hpp"

// The verifier's state, shared by verification and the version analysis.
namespace velk::updater {

struct ManifestVerifier::Impl {
    ManifestVerifierConfig config;
    HttpClient& httpClient;  // kept for the owner's sake; the verifier fetches nothing
    Logger& logger;
    std::optional<Manifest> currentManifest;
};

}  // namespace velk::updater
