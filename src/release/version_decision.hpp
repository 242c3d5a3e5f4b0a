#pragma once

#include <string>

#include "common/validation_result.hpp"

// Every decision on whether a release may replace the installed one. The installed version
// comes in as a value: nothing here reads the registry, and every comparison goes through
// the one version order.
namespace velk::updater {

// How a release's version and build stand against the installed ones.
enum class ReleaseOrder { NewerVersion, NewerBuild, Same, OlderBuild, OlderVersion };

ReleaseOrder compareRelease(const std::string& version, const std::string& build, const std::string& installedVersion,
                            const std::string& installedBuild);

// Whether a release in this order is applied: newer ones always, older ones only when
// downgrades are allowed, the same one never.
bool shouldApply(ReleaseOrder order, bool allowDowngrades);

// The gates a verified manifest passes before it is accepted. Each returns the text that
// explains its refusal, or an empty text; an unknown installed version passes them all.

// With downgrades disabled, a release older than the installed one is refused.
std::string downgradeRefusal(const std::string& version, const std::string& installedVersion, bool allowDowngrades);
// An installed version below the release's minimum cannot take the release.
std::string minimumVersionRefusal(const std::string& minimumVersion, const std::string& installedVersion);
// With a release key pinned, an older release is refused unless rollbacks are allowed: an
// old signed manifest replayed by a mirror must not bring back fixed vulnerabilities.
std::string rollbackRefusal(const std::string& version, const std::string& installedVersion, bool keyPinned,
                            bool allowRollback);

// Whether moving from `installedVersion` (empty when none is recorded) to `targetVersion`
// is allowed, checked once more right before files change.
ValidationResult validateVersion(const std::string& installedVersion, const std::string& targetVersion,
                                 bool allowDowngrades);

}  // namespace velk::updater
