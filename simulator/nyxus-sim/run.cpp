// SPDX-License-Identifier: Apache-2.0
#include "bus/server.h"
#include "bus/transport.h"
#include "commands.h"
#include "simulation.h"
#include "state_client.h"
#include "text/printable.h"

#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cctype>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace sim {

namespace {

/// Signals that a user sends to the program go through us. Make it before any thread starts.
class SignalRelay {
public:
    SignalRelay();
    ~SignalRelay();
    SignalRelay(const SignalRelay&) = delete;
    SignalRelay& operator=(const SignalRelay&) = delete;

    /// Runs the program, passes signals on to it, and returns its exit code: 128 + n when it died
    /// of signal n, 127 when there is no such program, 126 when it cannot be run.
    int run(const std::vector<std::string>& words, const std::string& bed_folder) const;

private:
    int wait_for(pid_t child) const;

    sigset_t relayed_{};
    /// By us, when we began; libraries have ignored some of them since.
    sigset_t not_ignored_{};
    struct sigaction original_child_ {};
    sigset_t original_{};
};

constexpr char kClientName[] = "libnyxus-sim-client.so";
constexpr int kNotFound = 127;
constexpr int kNotRunnable = 126;
constexpr int kSignalBase = 128;

int exit_code(int status)
{
    return WIFSIGNALED(status) ? kSignalBase + WTERMSIG(status) : WEXITSTATUS(status);
}

// Beside the program in the build tree, or where it is installed.
std::filesystem::path client_library()
{
    const auto program = std::filesystem::read_symlink("/proc/self/exe").parent_path();
    const std::filesystem::path prefix = program.parent_path();
    const std::array candidates{prefix / "lib" / kClientName,
                                prefix / "lib" / "nyxus" / kClientName,
                                prefix / NYXUS_LIBDIR / "nyxus" / kClientName};
    for (const auto& candidate : candidates) {
        if (std::filesystem::exists(candidate))
            return candidate;
    }
    throw std::runtime_error(std::string(kClientName) + " is missing; it belongs to " +
                             candidates.back().string());
}

// A program that has never loaded the client library has seen no camera, nor has what it became.
void warn_if_blind(const std::string& bed_folder, const std::string& program, pid_t process)
{
    const char* why = nullptr;
    if (!std::filesystem::exists(loaded_mark(bed_folder))) {
        why = "is it linked statically, or run with other rights?";
    } else if (std::filesystem::exists(blind_mark(bed_folder, process))) {
        why = "its environment was emptied";
    }
    if (why != nullptr) {
        std::fprintf(stderr,
                     "nyxus-sim: %s has not loaded the simulator's library and has seen no "
                     "camera: %s\n",
                     text::in_quotes(program).c_str(), why);
    }
}

std::vector<pid_t> children()
{
    std::vector<pid_t> found;
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/proc", ignored)) {
        if (std::isdigit(entry.path().filename().native().front()) == 0)
            continue;
        std::ifstream file(entry.path() / "stat");
        const std::string text{std::istreambuf_iterator<char>(file), {}};
        const size_t behind_name = text.rfind(')');
        pid_t process = 0;
        pid_t parent = 0;
        if (behind_name != std::string::npos && std::sscanf(text.c_str(), "%d", &process) == 1 &&
            std::sscanf(text.c_str() + behind_name, ") %*c %d", &parent) == 1 && parent == getpid())
            found.push_back(process);
    }
    return found;
}

// What a program that was told to end leaves behind has no cameras any more, and nobody else would
// end it.
void end_orphans()
{
    constexpr int kGentleRounds = 20;
    constexpr int kRounds = 40;
    constexpr auto kPause = std::chrono::milliseconds(25);
    for (int round = 0; round < kRounds; ++round) {
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
        const std::vector<pid_t> left = children();
        if (left.empty())
            return;
        for (const pid_t child : left)
            kill(child, round < kGentleRounds ? SIGTERM : SIGKILL);
        std::this_thread::sleep_for(kPause);
    }
}

SignalRelay::SignalRelay()
{
    sigemptyset(&relayed_);
    for (const int signal : {SIGCHLD, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2, SIGWINCH})
        sigaddset(&relayed_, signal);
    pthread_sigmask(SIG_BLOCK, &relayed_, &original_);

    // Where it is ignored, the end of the program never shows.
    struct sigaction by_default {};
    by_default.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &by_default, &original_child_);

    sigemptyset(&not_ignored_);
    struct sigaction pipe {};
    sigaction(SIGPIPE, nullptr, &pipe);
    if (pipe.sa_handler != SIG_IGN) // GLib's sockets ignore it
        sigaddset(&not_ignored_, SIGPIPE);
}

SignalRelay::~SignalRelay()
{
    sigaction(SIGCHLD, &original_child_, nullptr);
    pthread_sigmask(SIG_SETMASK, &original_, nullptr);
}

int SignalRelay::run(const std::vector<std::string>& words, const std::string& bed_folder) const
{
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (const std::string& word : words)
        arguments.push_back(const_cast<char*>(word.c_str()));
    arguments.push_back(nullptr);

    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    posix_spawnattr_setsigmask(&attributes, &original_);
    posix_spawnattr_setsigdefault(&attributes, &not_ignored_);
    pid_t child = 0;
    prctl(PR_SET_CHILD_SUBREAPER, 1UL);
    const int error =
        posix_spawnp(&child, arguments[0], nullptr, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0) {
        std::fprintf(stderr, "nyxus-sim: cannot run %s: %s\n", text::in_quotes(words[0]).c_str(),
                     std::strerror(error));
        return error == ENOENT ? kNotFound : kNotRunnable;
    }
    const int code = wait_for(child);
    if (code != kNotFound && code != kNotRunnable)
        warn_if_blind(bed_folder, words[0], child);
    return code;
}

int SignalRelay::wait_for(pid_t child) const
{
    bool is_to_end = false;
    for (;;) {
        int status = 0;
        const pid_t ended = waitpid(-1, &status, WNOHANG);
        if (ended == child) {
            if (is_to_end)
                end_orphans();
            return exit_code(status);
        }
        if (ended > 0)
            continue; // it has become ours when its parent went
        if (ended < 0 && errno == ECHILD)
            return EXIT_FAILURE; // it has ended, and nobody knows how
        siginfo_t info{};
        const int signal = sigwaitinfo(&relayed_, &info);
        // What the terminal sends, it has sent to the program too.
        if (signal > 0 && signal != SIGCHLD && info.si_code != SI_KERNEL)
            kill(child, signal);
        is_to_end = is_to_end || signal == SIGTERM || signal == SIGHUP;
    }
}

std::string preload_list(const std::string& bed_folder)
{
    std::filesystem::path client = client_library();
    if (client.string().find_first_of(" :") != std::string::npos) {
        // These separate the names of the list, so that a folder called so needs another name.
        const std::filesystem::path link = std::filesystem::path(bed_folder) / kClientName;
        std::filesystem::create_symlink(client, link);
        client = link;
    }
    std::string list = client.string() + ":libumockdev-preload.so.0";
    if (const char* others = std::getenv("LD_PRELOAD"))
        list += ":" + std::string(others);
    return list;
}

constexpr int kMissedFaultCode = 124;

} // namespace

int run_program(const RunArguments& arguments)
{
    const SignalRelay relay;
    Simulation simulation(arguments.simulation);
    int code = 0;
    {
        const Server server(simulation.bed(), simulation.virtual_clock() != nullptr);
        const std::string preload = preload_list(simulation.bed().folder());
        setenv("LD_PRELOAD", preload.c_str(), 1);
        setenv(kSocketVariable, simulation.state_socket().c_str(), 1);
        setenv("NYXUS_SIM_SPEED", arguments.simulation.speed.c_str(), 1);
        code = relay.run(arguments.program, simulation.bed().folder());
    }
    const bool saved = simulation.finish();
    if (arguments.strict && simulation.missed_a_fault())
        return kMissedFaultCode; // whatever the program says: it was not tried as it was meant to
                                 // be
    return saved || code != 0 ? code : 1;
}

} // namespace sim
