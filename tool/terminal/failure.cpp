// SPDX-License-Identifier: Apache-2.0
#include "terminal/failure.h"

#include <algorithm>
#include <iterator>

namespace tool {

// The other reasons have no code of their own.
// clang-format off
constexpr std::pair<engine::Reason, ExitCode> kExitCodeOf[] = {
    {engine::Reason::kNone,             kExitOk},
    {engine::Reason::kStopped,          kExitInterrupted},
    {engine::Reason::kCameraGone,       kExitCameraLost},
    {engine::Reason::kNotBack,          kExitTimeout},
    {engine::Reason::kTimedOut,         kExitTimeout},
    {engine::Reason::kPermissionDenied,     kExitPermission},
    {engine::Reason::kBusy,             kExitBusy},
    {engine::Reason::kProtected,        kExitProtected},
    {engine::Reason::kMismatch,         kExitMismatch},
    {engine::Reason::kWrongImage,       kExitImageRefused},
    {engine::Reason::kNotSupported,     kExitNotSupported},
    {engine::Reason::kUnknownRom,       kExitNotSupported},
    {engine::Reason::kNothingToRecover, kExitNotConfirmed},
    {engine::Reason::kNotStarted,       kExitNotStarted},
    {engine::Reason::kUncertainBackup,  kExitUncertainBackup},
    {engine::Reason::kUntrusted,        kExitImageRefused},
    {engine::Reason::kDowngrade,        kExitNotConfirmed},
};
// clang-format on

static ExitCode exit_code_of(engine::Reason reason)
{
    const auto* found =
        std::ranges::find(kExitCodeOf, reason, [](const auto& row) { return row.first; });
    return found == std::end(kExitCodeOf) ? kExitFailure : found->second;
}

Failure failure_of(const engine::Status& status, const std::string& advice)
{
    return {exit_code_of(status.reason()), status.text(advice)};
}

Failure library_failure(const std::string& doing, int32_t status, const std::string& advice)
{
    return failure_of(engine::library_failure(doing, status), advice);
}

Failure usb_failure(const std::string& doing, int libusb_code)
{
    return failure_of(engine::usb_failure(doing, libusb_code));
}

} // namespace tool
