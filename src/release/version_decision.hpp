#pragma once

#include <chrono>
#include <cstdint>
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

// With a key pinned, a release is offered only until its signed expiry: a mirror that keeps
// serving an old signed manifest cannot hide newer releases for ever. A manifest without an
// expiry is refused too; an expiry that cannot be read counts as passed.
std::string expiryRefusal(const std::string& expires, std::chrono::system_clock::time_point now);
// With a key pinned, a manifest signed for one channel is not taken on another.
std::string channelRefusal(const std::string& manifestChannel, const std::string& requestedChannel);

// Staged rollout. Every installation draws a cohort below kRolloutCohorts once and keeps it;
// a release rolled out to p% reaches the cohorts below p% of them, so raising the share keeps
// every installation already in, and 0% stops the release where it is.
inline constexpr std::uint32_t kRolloutCohorts = 10000;
bool inRollout(std::uint32_t cohort, std::uint32_t percentage);
// The text that explains why a version change (a newer version, or a newer build of the same
// one) is held back for this cohort, or an empty text. Repairs and downgrades are never held
// back, and `force` takes the release regardless.
std::string rolloutHold(ReleaseOrder order, const std::string& version, std::uint32_t percentage,
                        std::uint32_t cohort, bool force);

// Whether moving from `installedVersion` (empty when none is recorded) to `targetVersion`
// is allowed, checked once more right before files change.
ValidationResult validateVersion(const std::string& installedVersion, const std::string& targetVersion,
                                 bool allowDowngrades);

}  // namespace velk::updater
