#pragma once

#include <cstdint>
#include <string>

#include "app/options.hpp"
#include "apply/file_updater.hpp"
#include "http/http_client.hpp"
#include "logging/logger.hpp"
#include "release/manifest_verifier.hpp"
#include "apply/self_updater.hpp"

// Every component's settings are made here, from the options, the build's endpoints and
// the registry, and handed down as records.
namespace velk::updater {

// The installation of a run: the folder named on the command line, else the registered
// or default one; downloads wait in the system's temporary folder. Throws the filesystem
// error when the system has no temporary folder.
InstallationLayout makeInstallationLayout(const UpdaterConfig& options);

// The file updater settings of a run, on the run's installation.
FileUpdaterConfig makeFileUpdaterConfig(const InstallationLayout& layout);

// The logger settings of a run, from the options and the registry switches.
LoggerConfig makeLoggerConfig(const UpdaterConfig& options, const InstallationLayout& layout);

// The verifier settings of a run: downgrades are refused only when disabled and not forced;
// the build's pinned release keys and threshold; rollbacks allowed and the rollout share
// ignored only when forced.
ManifestVerifierConfig makeVerifierConfig(const UpdaterConfig& options, const std::string& installedVersion,
                                          const std::string& installedBuildNumber, std::uint32_t rolloutCohort);

// This installation's rollout cohort: the one kept in the product record, else one drawn from
// the system's secure random source and kept there. Needs CryptoUtils started.
std::uint32_t rolloutCohort();

HttpConfig makeHttpConfig();

// The self-updater works in the installation folder on the running executable.
SelfUpdaterConfig makeSelfUpdaterConfig(const InstallationLayout& layout);

}  // namespace velk::updater
