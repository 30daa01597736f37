// SPDX-License-Identifier: Apache-2.0
#include "failure.h"

namespace tool {

ExitCode exit_code_of(engine::Reason reason)
{
    using engine::Reason;
    switch (reason) {
        case Reason::kNone:
            return kExitOk;
        case Reason::kStopped:
            return kExitInterrupted;
        case Reason::kCameraGone:
            return kExitCameraLost;
        case Reason::kNotBack:
        case Reason::kTimedOut:
            return kExitTimeout;
        case Reason::kNoPermission:
            return kExitPermission;
        case Reason::kBusy:
            return kExitBusy;
        case Reason::kProtected:
            return kExitProtected;
        case Reason::kMismatch:
            return kExitMismatch;
        case Reason::kWrongImage:
            return kExitImageRefused;
        case Reason::kNotSupported:
        case Reason::kUnknownRom:
            return kExitNotSupported;
        case Reason::kNothingToRecover:
            return kExitNotConfirmed;
        case Reason::kOther:
        case Reason::kFile:
        case Reason::kBackupNotKept:
        case Reason::kNoBackup:
        case Reason::kNotStarted:
            break;
    }
    return kExitFailure;
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
