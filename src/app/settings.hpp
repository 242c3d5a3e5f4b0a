#pragma once

#include <string>

#include "app/options.hpp"
#include "files/file_updater.hpp"
#include "http/http_client.hpp"
#include "logging/logger.hpp"
#include "manifest/manifest_verifier.hpp"
#include "selfupdate/self_updater.hpp"

// Every component's settings are made here, from the options, the build's endpoints and
// the registry, and handed down as records.
namespace velk::updater {

// The file updater settings of a run; its installation directory is the run's.
FileUpdaterConfig makeFileUpdaterConfig(const UpdaterConfig& options);

// The logger settings of a run, from the options and the registry switches.
LoggerConfig makeLoggerConfig(const UpdaterConfig& options, const std::string& installDirectory);

// The verifier settings of a run: downgrades are refused only when disabled and not forced;
// the build's pinned release keys, and rollbacks allowed only when forced.
ManifestVerifierConfig makeVerifierConfig(const UpdaterConfig& options, const std::string& installedVersion,
                                          const std::string& installedBuildNumber);

HttpConfig makeHttpConfig();

// The self-updater works in the file updater's folders on the running executable.
SelfUpdaterConfig makeSelfUpdaterConfig(const FileUpdaterConfig& files);

}  // namespace velk::updater
