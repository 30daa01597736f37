// SPDX-License-Identifier: Apache-2.0
#include "bus/node_hook.h"

#include <fcntl.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace sim {

namespace {

// ioctls of usbfs all carry this letter; anything else is passed on without a look at the table.
constexpr unsigned kUsbfsLetter = 'U';

using Sessions = std::map<int, std::shared_ptr<IoctlSession>>;

struct OpenNodes {
    std::mutex mutex;
    pid_t process = getpid();
    Sessions by_fd;
    Sessions inherited; ///< opened before a fork by the parent: kept open, never used
};

OpenNodes& open_nodes();

void before_fork()
{
    open_nodes().mutex.lock();
}

void after_fork_in_parent()
{
    open_nodes().mutex.unlock();
}

void after_fork_in_child()
{
    OpenNodes& nodes = open_nodes();
    nodes.process = getpid();
    nodes.inherited.merge(nodes.by_fd);
    nodes.by_fd.clear();
    nodes.mutex.unlock();
}

OpenNodes* make_open_nodes()
{
    pthread_atfork(before_fork, after_fork_in_parent, after_fork_in_child);
    return new OpenNodes;
}

// Never destroyed: other threads may still close descriptors while the process ends.
OpenNodes& open_nodes()
{
    static OpenNodes* const nodes = make_open_nodes();
    return *nodes;
}

// Past the interposed readlink(), which shows the program the path that it asked for.
std::string path_of(int fd)
{
    const std::string link = "/proc/self/fd/" + std::to_string(fd);
    char path[4096];
    const long length = syscall(SYS_readlinkat, AT_FDCWD, link.c_str(), path, sizeof path);
    return length > 0 ? std::string(path, static_cast<size_t>(length)) : std::string();
}

// <bed>/dev/bus/usb/001/005; the name of the bed's folder is unique.
std::optional<NodeName> node_of(int fd)
{
    const char* bed = std::getenv("UMOCKDEV_DIR");
    if (bed == nullptr)
        return std::nullopt;
    std::string_view folder(bed);
    folder.remove_prefix(folder.rfind('/') + 1);
    const std::string marker = "/" + std::string(folder) + "/dev/bus/usb/";
    const std::string path = path_of(fd);
    const size_t at = path.find(marker);
    NodeName node{};
    if (at == std::string::npos ||
        std::sscanf(path.c_str() + at + marker.size(), "%3u/%3u", &node.bus, &node.address) != 2)
        return std::nullopt;
    return node;
}

std::shared_ptr<IoctlSession> find_session(int fd)
{
    OpenNodes& nodes = open_nodes();
    const std::lock_guard lock(nodes.mutex);
    const auto found = nodes.by_fd.find(fd);
    return found == nodes.by_fd.end() ? nullptr : found->second;
}

bool is_inherited(int fd)
{
    OpenNodes& nodes = open_nodes();
    const std::lock_guard lock(nodes.mutex);
    return nodes.inherited.contains(fd);
}

// The first ioctl on a node: the program's descriptor becomes the one that tells readiness.
std::shared_ptr<IoctlSession> open_session(int fd, const NodeName& node)
{
    std::unique_ptr<Channel> channel = connect_node(node);
    if (!channel)
        return nullptr;
    const int flags = fcntl(fd, F_GETFD);
    if (dup3(channel->ready_fd(), fd, (flags & FD_CLOEXEC) != 0 ? O_CLOEXEC : 0) < 0)
        return nullptr;
    auto session = std::make_shared<IoctlSession>(std::move(channel));
    OpenNodes& nodes = open_nodes();
    const std::lock_guard lock(nodes.mutex);
    nodes.by_fd[fd] = session;
    nodes.inherited.erase(fd);
    return session;
}

} // namespace

std::optional<int> hooked_ioctl(int fd, unsigned long code, void* argument)
{
    if (_IOC_TYPE(code) != kUsbfsLetter)
        return std::nullopt;
    std::shared_ptr<IoctlSession> session = find_session(fd);
    if (!session) {
        const std::optional<NodeName> node = node_of(fd);
        if (!node)
            return is_inherited(fd) ? std::optional(-ENODEV) : std::nullopt;
        session = open_session(fd, *node);
    }
    return session ? session->ioctl(static_cast<uint32_t>(code), argument) : -ENODEV;
}

void hooked_close(int fd)
{
    std::shared_ptr<IoctlSession> session; // ends outside the lock: its channel closes descriptors
    OpenNodes& nodes = open_nodes();
    const std::lock_guard lock(nodes.mutex);
    for (Sessions* sessions : {&nodes.by_fd, &nodes.inherited}) {
        const auto found = sessions->find(fd);
        // The child of a vfork() closes only its own copy, though it shares this memory.
        if (found != sessions->end() && nodes.process == getpid()) {
            session = std::move(found->second);
            sessions->erase(found);
            return;
        }
    }
}

} // namespace sim
