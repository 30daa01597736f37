// SPDX-License-Identifier: Apache-2.0
#include "state_folder.h"

#include <pwd.h>
#include <unistd.h>
#include <cstdlib>
#include <vector>

namespace nyxus::engine {

namespace fs = std::filesystem;

static fs::path home_folder()
{
    if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/')
        return home;
    passwd entry;
    passwd* user = nullptr;
    std::vector<char> texts(16384);
    getpwuid_r(getuid(), &entry, texts.data(), texts.size(), &user);
    return user != nullptr && user->pw_dir != nullptr ? user->pw_dir : "";
}

fs::path usual_state_folder()
{
    if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state == '/')
        return fs::path(state) / "nyxus";
    const fs::path home = home_folder();
    return home.empty() ? home : home / ".local/state/nyxus";
}

} // namespace nyxus::engine
