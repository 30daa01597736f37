// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "files/descriptor.h"

#include <string>

namespace sim {

/// While it lives, TMPDIR is a folder whose name is short enough for UNIX sockets below it.
class ShortTempFolder {
public:
    ShortTempFolder();
    ~ShortTempFolder();
    ShortTempFolder(const ShortTempFolder&) = delete;
    ShortTempFolder& operator=(const ShortTempFolder&) = delete;

    const std::string& path() const { return path_; }

private:
    std::string previous_;
    bool was_set_ = false;
    std::string path_;
};

/// Marks a bed's folder as in use by this process for as long as the lock lives, however the
/// process dies.
files::Descriptor lock_bed(const std::string& bed);

/// Deletes the beds that crashed processes of this user have left in `folder`.
void remove_abandoned_beds(const std::string& folder);

} // namespace sim
