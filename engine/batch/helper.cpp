// SPDX-License-Identifier: Apache-2.0
#include "helper.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <initializer_list>
#include <system_error>

#include "files/pipe.h"
#include "files/write_all.h"

namespace nyxus::engine {

namespace {

Status start_failure(int error)
{
    return {Reason::kOther, std::string("cannot start a process for the camera: ") +
                                std::generic_category().message(error)};
}

/// Where it is in nobody's way while a child's first descriptors are put in their places.
files::Descriptor put_aside(int fd)
{
    return files::Descriptor(fcntl(fd, F_DUPFD_CLOEXEC, kImagesFd + 1));
}

/// The images in memory that nobody can change any more; empty, and errno, on failure.
files::Descriptor sealed(const std::vector<ChipImages>& all)
{
    const files::Descriptor made(memfd_create("nyxus-images", MFD_CLOEXEC | MFD_ALLOW_SEALING));
    files::Descriptor file = put_aside(made.get());
    const auto add = [&file](Bytes part) {
        const std::string_view text(reinterpret_cast<const char*>(part.data()), part.size());
        if (file && files::write_all(file.get(), text) != 0)
            file.reset();
    };
    for (const ChipImages& one : all) {
        add(one.images.firmware.as_read());
        if (one.images.mfi)
            add(one.images.mfi->bytes());
    }
    if (file && fcntl(file.get(), F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE) != 0)
        file.reset();
    return file;
}

Order order_for(const BatchCamera& camera, const BatchOptions& options)
{
    Order order{.port = camera.port, .options = options, .images = {}};
    for (const ChipImages& one : *camera.images) {
        const std::optional<Mfi>& mfi = one.images.mfi;
        order.images.push_back({.chip = one.chip,
                                .firmware_bytes = one.images.firmware.as_read().size(),
                                .mfi_bytes = mfi ? mfi->bytes().size() : 0,
                                .serial = mfi ? mfi->serial() : "",
                                .reports = one.images.reports});
    }
    return order;
}

/// Attributes of posix_spawn(): a process group of its own, and no signal blocked.
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

/// What the child's descriptors are, from 0 on.
class SpawnFiles {
public:
    SpawnFiles(std::initializer_list<int> fds)
    {
        posix_spawn_file_actions_init(&actions_);
        for (int child_fd = 0; const int fd : fds)
            posix_spawn_file_actions_adddup2(&actions_, fd, child_fd++);
    }
    ~SpawnFiles() { posix_spawn_file_actions_destroy(&actions_); }
    SpawnFiles(const SpawnFiles&) = delete;
    SpawnFiles& operator=(const SpawnFiles&) = delete;
    const posix_spawn_file_actions_t* get() const { return &actions_; }

private:
    posix_spawn_file_actions_t actions_{};
};

/// Sends a line whole or not at all; one who does not read hears of no second stop.
bool send_line(int fd, const std::string& line)
{
    const ssize_t sent = send(fd, line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    return sent == static_cast<ssize_t>(line.size());
}

} // namespace

Result<Helper> Helper::start(const std::string& program, const BatchCamera& camera,
                             const BatchOptions& options, const Backups& backups)
{
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
        return start_failure(errno);
    files::Descriptor ours(ends[0]);
    const files::Descriptor theirs(ends[1]);
    files::Pipe said = files::make_pipe();
    const files::Descriptor talk_end = put_aside(theirs.get());
    const files::Descriptor said_end = put_aside(said.write_end.get());
    const files::Descriptor image = sealed(*camera.images);
    if (!talk_end || !said_end || !image || fcntl(ours.get(), F_SETFL, O_NONBLOCK) != 0 ||
        fcntl(said.read_end.get(), F_SETFL, O_NONBLOCK) != 0)
        return start_failure(errno);
    std::string name = program;
    std::string folder = backups.state_folder().string();
    char* const argv[] = {name.data(), folder.data(), nullptr};
    const SpawnAttributes attributes;
    const SpawnFiles fds{talk_end.get(), said_end.get(), said_end.get(), image.get()};
    pid_t pid = -1;
    const int error = posix_spawn(&pid, name.c_str(), fds.get(), attributes.get(), argv, environ);
    if (error != 0)
        return start_failure(error);
    (void)send_line(ours.get(),
                    to_line(order_for(camera, options))); // one that has ended is noticed as such
    return Helper(std::move(ours), std::move(said.read_end), pid);
}

void Helper::ask_to_stop()
{
    (void)send_line(talk_.fd(), kStopLine);
}

void Helper::kill() const
{
    ::kill(pid_, SIGKILL);
}

bool Helper::is_stopped() const
{
    siginfo_t info{};
    return waitid(P_PID, static_cast<id_t>(pid_), &info, WSTOPPED | WNOHANG | WNOWAIT) == 0 &&
           info.si_pid == pid_;
}

std::optional<int> Helper::ended() const
{
    constexpr int kUnknown = W_EXITCODE(1, 0);
    int status = 0;
    const pid_t pid = waitpid(pid_, &status, WNOHANG);
    if (pid < 0 && errno == ECHILD) // somebody else has heard of its end
        return kUnknown;
    return pid == pid_ ? std::optional(status) : std::nullopt;
}

std::string installed_helper()
{
    constexpr char kName[] = "/nyxus-engine-worker";
    Dl_info info{};
    dladdr(reinterpret_cast<const void*>(installed_helper), &info);
    const std::string library = info.dli_fname != nullptr ? info.dli_fname : "";
    const std::string folder = library.substr(0, library.rfind('/') + 1);
    const std::string installed = folder + NYXUS_ENGINE_LIBEXEC + kName;
    // In a build tree it lies beside the library.
    return access(installed.c_str(), X_OK) == 0 ? installed : folder + "." + kName;
}

} // namespace nyxus::engine
