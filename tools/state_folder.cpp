// SPDX-License-Identifier: Apache-2.0
#include "state_folder.h"

#include "failure.h"

#include <pwd.h>
#include <unistd.h>
#include <cstdlib>

namespace tool {

namespace fs = std::filesystem;

static fs::path state_of_all_programs()
{
    if (const char* state = std::getenv("XDG_STATE_HOME"); state != nullptr && *state == '/')
        return state;
    if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/')
        return fs::path(home) / ".local/state";
    const passwd* user = getpwuid(getuid());
    if (user == nullptr || user->pw_dir == nullptr)
        throw Failure(kExitFailure, "there is no home folder");
    return fs::path(user->pw_dir) / ".local/state";
}

fs::path state_folder()
{
    return state_of_all_programs() / "nyxus";
}

} // namespace tool
