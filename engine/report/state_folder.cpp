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

static fs::path user_folder(const char* variable, const char* below_home)
{
    if (const char* folder = std::getenv(variable); folder != nullptr && *folder == '/')
        return fs::path(folder) / "nyxus";
    const fs::path home = home_folder();
    return home.empty() ? home : home / below_home / "nyxus";
}

fs::path usual_state_folder()
{
    return user_folder("XDG_STATE_HOME", ".local/state");
}

fs::path usual_config_folder()
{
    return user_folder("XDG_CONFIG_HOME", ".config");
}

} // namespace nyxus::engine
