// SPDX-License-Identifier: Apache-2.0
// A test program starts anew on a simulated bus: what stands below libusb there has to be loaded
// before everything else.
#include "enter.h"

#include <link.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sstream>
#include <string_view>
#include <vector>

// There in a program with AddressSanitizer.
extern "C" __attribute__((weak)) void __asan_init(); // NOLINT(bugprone-reserved-identifier)

namespace nyxus::simulator {

namespace {

namespace fs = std::filesystem;

/// Set for the program by the process that starts the simulation: its own number.
constexpr char kStarterVariable[] = "NYXUS_SIM_STARTER";
constexpr char kClientName[] = "libnyxus-sim-client.so";

bool is_program(const fs::path& path)
{
    return access(path.c_str(), X_OK) == 0;
}

std::string text_of(const char* variable)
{
    const char* value = std::getenv(variable);
    return value != nullptr ? value : "";
}

// Empty when there is none.
fs::path find_simulator()
{
    if (const std::string named = text_of("NYXUS_SIM"); !named.empty())
        return is_program(named) ? named : "";
    std::error_code unknown;
    const fs::path beside =
        fs::read_symlink("/proc/self/exe", unknown).replace_filename("nyxus-sim");
    if (!unknown && is_program(beside))
        return beside;
    std::istringstream folders(text_of("PATH"));
    for (std::string folder; std::getline(folders, folder, ':');) {
        if (is_program(fs::path(folder) / "nyxus-sim"))
            return fs::path(folder) / "nyxus-sim";
    }
    return is_program(NYXUS_SIM_INSTALLED) ? NYXUS_SIM_INSTALLED : "";
}

bool is_client_loaded()
{
    const auto look = [](dl_phdr_info* library, size_t, void*) {
        return std::string_view(library->dlpi_name).find(kClientName) != std::string_view::npos ? 1
                                                                                                : 0;
    };
    return dl_iterate_phdr(look, nullptr) != 0;
}

// Nothing of a test program that was started by us outlives the simulation.
void end_with_simulation()
{
    if (text_of(kStarterVariable) == std::to_string(getppid()))
        prctl(PR_SET_PDEATHSIG, SIGKILL);
}

void start_anew(const fs::path& simulator, const fs::path& self, char** arguments)
{
    const std::string speed = text_of("NYXUS_SIM_SPEED") == "real" ? "real" : "fast";
    std::vector<std::string> words{simulator, "run", "--test-bus", "--speed", speed, "--", self};
    for (char** argument = arguments + 1; *argument != nullptr; ++argument)
        words.emplace_back(*argument);
    std::vector<char*> pointers;
    std::transform(words.begin(), words.end(), std::back_inserter(pointers),
                   [](std::string& word) { return word.data(); });
    pointers.push_back(nullptr);
    setenv(kStarterVariable, std::to_string(getpid()).c_str(), 1);
    if (__asan_init != nullptr) {
        const std::string options = text_of("ASAN_OPTIONS");
        setenv("ASAN_OPTIONS", ("verify_asan_link_order=0:" + options).c_str(), 1);
    }
    execv(simulator.c_str(), pointers.data());
}

// glibc passes main()'s arguments.
__attribute__((constructor)) void enter(int count, char** arguments, char**)
{
    if (std::getenv("NYXUS_SIM_SOCKET") != nullptr)
        return end_with_simulation();
    const bool only_lists = std::any_of(arguments, arguments + count, [](const char* argument) {
        return std::strcmp(argument, "--gtest_list_tests") == 0;
    });
    const fs::path simulator = find_simulator();
    std::error_code unknown;
    const fs::path self = fs::read_symlink("/proc/self/exe", unknown);
    if (count > 0 && !only_lists && !simulator.empty() && !unknown)
        start_anew(simulator, self, arguments);
}

} // namespace

std::string why_outside()
{
    if (std::getenv("NYXUS_SIM_SOCKET") != nullptr) {
        return is_client_loaded() ? ""
                                  : "this program does not see the simulated bus around it: it is "
                                    "linked statically or setuid, or LD_PRELOAD was changed";
    }
    const std::string named = text_of("NYXUS_SIM");
    if (find_simulator().empty()) {
        return named.empty() ? "there is no nyxus-sim on the PATH; install the package "
                               "nyxus-simulator, or set NYXUS_SIM to the program"
                             : "NYXUS_SIM says '" + named + "', where no program is";
    }
    return find_simulator().string() + " cannot be run";
}

} // namespace nyxus::simulator
