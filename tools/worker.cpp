// SPDX-License-Identifier: Apache-2.0
#include "worker.h"

#include "failure.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <iterator>
#include <utility>

namespace tool {

namespace {

constexpr char kThisProgram[] = "/proc/self/exe";
constexpr size_t kLongestLine = 65536;

Failure start_failure(int error)
{
    return {kExitFailure, std::string("cannot start a worker: ") + std::strerror(error)};
}

/// Attributes of posix_spawn(): a process group of its own, so that only we get the terminal's
/// interrupts, and no signal blocked.
class SpawnAttributes {
public:
    SpawnAttributes()
    {
        posix_spawnattr_init(&attributes_);
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
    }
    ~SpawnAttributes() { posix_spawnattr_destroy(&attributes_); }
    SpawnAttributes(const SpawnAttributes&) = delete;
    SpawnAttributes& operator=(const SpawnAttributes&) = delete;
    const posix_spawnattr_t* get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_{};
};

/// What the child's standard descriptors are.
class SpawnFiles {
public:
    SpawnFiles(int out, int err)
    {
        posix_spawn_file_actions_init(&actions_);
        posix_spawn_file_actions_addopen(&actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_adddup2(&actions_, out, STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions_, err, STDERR_FILENO);
    }
    ~SpawnFiles() { posix_spawn_file_actions_destroy(&actions_); }
    SpawnFiles(const SpawnFiles&) = delete;
    SpawnFiles& operator=(const SpawnFiles&) = delete;
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

} // namespace

std::vector<std::string> LineStream::read_lines()
{
    char buffer[4096];
    const ssize_t count = read(fd(), buffer, sizeof buffer);
    if (count < 0 && errno == EINTR)
        return {};
    if (count > 0)
        rest_.append(buffer, static_cast<size_t>(count));
    std::vector<std::string> lines;
    for (size_t end = rest_.find('\n'); end != std::string::npos; end = rest_.find('\n')) {
        lines.push_back(rest_.substr(0, end));
        rest_.erase(0, end + 1);
    }
    const bool ended = count <= 0;
    if (!rest_.empty() && (ended || rest_.size() > kLongestLine))
        lines.push_back(std::exchange(rest_, {}));
    if (ended)
        pipe_.reset();
    return lines;
}

static files::Pipe make_pipe()
{
    files::Pipe pipe = files::make_pipe();
    if (!pipe.read_end)
        throw start_failure(errno);
    return pipe;
}

Worker::Worker(const std::vector<std::string>& arguments)
    : Worker(arguments, make_pipe(), make_pipe())
{
}

Worker::Worker(const std::vector<std::string>& arguments, files::Pipe out, files::Pipe err)
    : out_(std::move(out.read_end)), err_(std::move(err.read_end))
{
    std::vector<char*> argv = {const_cast<char*>("nyxus")};
    std::ranges::transform(arguments, std::back_inserter(argv), [](const std::string& argument) {
        return const_cast<char*>(argument.c_str()); // posix_spawn() only reads them
    });
    argv.push_back(nullptr);
    const SpawnAttributes attributes;
    const SpawnFiles files(out.write_end.get(), err.write_end.get());
    const int error =
        posix_spawn(&pid_, kThisProgram, files.get(), attributes.get(), argv.data(), environ);
    if (error != 0)
        throw start_failure(error);
}

void Worker::send(int signal) const
{
    kill(pid_, signal);
}

std::optional<int> Worker::ended()
{
    int status = 0;
    const pid_t pid = waitpid(pid_, &status, WNOHANG);
    if (pid < 0 && errno == ECHILD) // somebody else has heard of its end
        return W_EXITCODE(kExitFailure, 0);
    return pid == pid_ ? std::optional(status) : std::nullopt;
}

} // namespace tool
