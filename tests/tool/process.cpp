// SPDX-License-Identifier: Apache-2.0
#include "process.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <iterator>
#include <stdexcept>

namespace test {

namespace {

constexpr std::chrono::seconds kTimeLimit{120}; // under a sanitizer, beside other tests

[[noreturn]] void exec_program(const std::vector<std::string>& command, const RunOptions& options)
{
    for (const auto& [name, value] : options.environment)
        setenv(name.c_str(), value.c_str(), 1);
    // Who runs the tests in the background has had them ignored.
    for (const int signal : {SIGINT, SIGQUIT, SIGHUP})
        std::signal(signal, SIG_DFL);
    std::vector<char*> arguments;
    std::ranges::transform(command, std::back_inserter(arguments),
                           [](const std::string& word) { return const_cast<char*>(word.c_str()); });
    arguments.push_back(nullptr);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

/// Reads until all streams end or the time is up; false for the latter.
bool collect(std::array<pollfd, 2> streams, const std::array<std::string*, 2>& texts)
{
    const auto deadline = std::chrono::steady_clock::now() + kTimeLimit;
    while (streams[0].fd >= 0 || streams[1].fd >= 0) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        poll(streams.data(), streams.size(), 1000);
        for (size_t i = 0; i < streams.size(); ++i) {
            if (streams[i].fd < 0 || streams[i].revents == 0)
                continue;
            char buffer[4096];
            const ssize_t count = read(streams[i].fd, buffer, sizeof buffer);
            if (count > 0) {
                texts[i]->append(buffer, static_cast<size_t>(count));
            } else {
                streams[i].fd = -1; // end of a pipe, or EIO from a terminal that nobody holds
            }
        }
    }
    return true;
}

int exit_code_of(pid_t child, bool in_time)
{
    if (!in_time)
        kill(-child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    return in_time && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

Outcome run_on_terminal(const std::vector<std::string>& command, const RunOptions& options)
{
    winsize size{};
    size.ws_row = 24;
    size.ws_col = static_cast<unsigned short>(options.terminal_columns);
    int terminal = -1;
    const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
    if (child < 0)
        throw std::runtime_error("forkpty");
    if (child == 0)
        exec_program(command, options);
    if (write(terminal, options.typed.data(), options.typed.size()) < 0)
        throw std::runtime_error("write");
    Outcome outcome;
    const bool in_time =
        collect({pollfd{terminal, POLLIN, 0}, pollfd{-1, 0, 0}}, {&outcome.out, &outcome.err});
    outcome.exit_code = exit_code_of(child, in_time);
    close(terminal);
    return outcome;
}

Outcome run_on_pipes(const std::vector<std::string>& command, const RunOptions& options)
{
    int out[2];
    int err[2];
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0)
        throw std::runtime_error("pipe");
    const pid_t child = fork();
    if (child < 0)
        throw std::runtime_error("fork");
    if (child == 0) {
        setpgid(0, 0);
        dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(err[1], STDERR_FILENO);
        exec_program(command, options);
    }
    close(out[1]);
    close(err[1]);
    Outcome outcome;
    const bool in_time = collect({pollfd{out[0], POLLIN, 0}, pollfd{err[0], POLLIN, 0}},
                                 {&outcome.out, &outcome.err});
    outcome.exit_code = exit_code_of(child, in_time);
    close(out[0]);
    close(err[0]);
    return outcome;
}

} // namespace

Outcome run_program(const std::vector<std::string>& command, const RunOptions& options)
{
    return options.terminal_columns > 0 ? run_on_terminal(command, options)
                                        : run_on_pipes(command, options);
}

} // namespace test
