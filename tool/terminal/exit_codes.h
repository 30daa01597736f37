// SPDX-License-Identifier: Apache-2.0
#pragma once

namespace tool {

/// Exit codes of the program. Scripts rely on them: numbers never change their meaning.
enum ExitCode {
    kExitOk = 0,
    kExitFailure = 1,
    kExitUsage = 2,
    kExitNoCamera = 3,
    kExitAmbiguous = 4,
    kExitPermission = 5,
    kExitBusy = 6,
    kExitImageRefused = 7,
    kExitMismatch = 8,
    kExitProtected = 9,
    kExitTimeout = 10,
    kExitCameraLost = 11,
    kExitNotSupported = 12,
    kExitNotConfirmed = 13,
    kExitNotStarted = 14,
    kExitUncertainBackup = 15,
    kExitInterrupted = 130,
};

inline constexpr char kExitCodeHelp[] =
    "Exit codes:\n"
    "  0  success                         8  contents differ\n"
    "  1  other failure                   9  write-protected\n"
    "  2  wrong usage                    10  time-out\n"
    "  3  no such camera                 11  camera lost\n"
    "  4  more than one camera matches   12  not supported by this camera\n"
    "  5  no permission                  13  not confirmed (--yes, --force)\n"
    "  6  camera is busy                 14  does not run what its ROM should hold\n"
    "  7  image refused                  15  more than one backup may be meant\n"
    "                                   130  interrupted\n";

} // namespace tool
