// SPDX-License-Identifier: Apache-2.0
#include <nyxus/engine/events.hpp>

namespace nyxus::engine {

const char* to_text(Phase phase)
{
    constexpr const char* kTexts[] = {"reading",   "reading again", "unlocking",
                                      "erasing",   "programming",   "locking",
                                      "verifying", "verifying MFi", "waiting for the camera",
                                      "restarting"};
    return kTexts[static_cast<size_t>(phase)];
}

const char* to_text(RomContents contents)
{
    constexpr const char* kTexts[] = {"unchanged",  "new",    "unverified",
                                      "incomplete", "erased", "unknown"};
    return kTexts[static_cast<size_t>(contents)];
}

} // namespace nyxus::engine
