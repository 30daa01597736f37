// SPDX-License-Identifier: Apache-2.0
#include "bus/transport.h"

#include "files/parts.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <type_traits>

namespace sim {

namespace {

static_assert(std::is_trivially_copyable_v<RequestHeader>);
static_assert(std::is_trivially_copyable_v<ReplyHeader>);

// A request carries the setup and the OUT data of a control transfer, or packet lengths.
constexpr uint32_t kMaxRequestPayload = 128u << 10;
constexpr uint32_t kMaxReplyPayload = kMaxUrbBytes + kMaxIsoPackets * sizeof(IsoResult);

// Room for one passed descriptor.
union Control {
    cmsghdr align;
    std::array<char, CMSG_SPACE(sizeof(int))> bytes;
};

void attach_fd(msghdr& message, Control& control, int fd)
{
    message.msg_control = control.bytes.data();
    message.msg_controllen = control.bytes.size();
    cmsghdr* entry = CMSG_FIRSTHDR(&message);
    entry->cmsg_level = SOL_SOCKET;
    entry->cmsg_type = SCM_RIGHTS;
    entry->cmsg_len = CMSG_LEN(sizeof fd);
    std::memcpy(CMSG_DATA(entry), &fd, sizeof fd);
}

bool send_bytes(int socket, const void* header, size_t header_bytes,
                const std::vector<uint8_t>& payload, int passed_fd)
{
    std::array<iovec, 2> parts{{{const_cast<void*>(header), header_bytes},
                                {const_cast<uint8_t*>(payload.data()), payload.size()}}};
    Control control{};
    msghdr message{};
    message.msg_iov = parts.data();
    message.msg_iovlen = parts.size();
    if (passed_fd >= 0)
        attach_fd(message, control, passed_fd);
    size_t left = header_bytes + payload.size();
    while (left > 0) {
        const ssize_t sent = sendmsg(socket, &message, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent <= 0)
            return false;
        left -= static_cast<size_t>(sent);
        files::drop_front(parts, static_cast<size_t>(sent));
        message.msg_control = nullptr;
        message.msg_controllen = 0;
    }
    return true;
}

bool receive_bytes(int socket, void* buffer, size_t bytes)
{
    auto* next = static_cast<char*>(buffer);
    while (bytes > 0) {
        const ssize_t got = recvfrom(socket, next, bytes, 0, nullptr, nullptr);
        if (got < 0 && errno == EINTR)
            continue;
        if (got <= 0)
            return false;
        next += got;
        bytes -= static_cast<size_t>(got);
    }
    return true;
}

// Past recvmsg(), which the preloaded library of the bed interposes.
ssize_t receive_message(int socket, msghdr& message)
{
    long got = 0;
    do {
        got = syscall(SYS_recvmsg, socket, &message, MSG_CMSG_CLOEXEC);
    } while (got < 0 && errno == EINTR);
    return got;
}

int fd_of(msghdr& message)
{
    int fd = -1;
    const cmsghdr* entry = CMSG_FIRSTHDR(&message);
    if (entry != nullptr && entry->cmsg_type == SCM_RIGHTS &&
        entry->cmsg_len == CMSG_LEN(sizeof fd))
        std::memcpy(&fd, CMSG_DATA(entry), sizeof fd);
    return fd;
}

// Header and payload in one step, most of the time: nobody sends a second message before the first
// one is answered.
template <typename Message>
bool receive(int socket, Message& message, uint32_t most, files::Descriptor* passed = nullptr)
{
    constexpr size_t kHeader = sizeof message.header;
    std::array<uint8_t, 4096> early; // NOLINT(cppcoreguidelines-pro-type-member-init)
    std::array<iovec, 2> parts{{{&message.header, kHeader}, {early.data(), early.size()}}};
    Control control{};
    msghdr head{};
    head.msg_iov = parts.data();
    head.msg_iovlen = parts.size();
    if (passed != nullptr) {
        head.msg_control = control.bytes.data();
        head.msg_controllen = control.bytes.size();
    }
    const ssize_t got = receive_message(socket, head);
    if (got <= 0)
        return false;
    if (passed != nullptr)
        passed->reset(fd_of(head));
    const auto bytes = static_cast<size_t>(got);
    const size_t in_header = std::min(bytes, kHeader);
    const size_t in_payload = bytes - in_header;
    if (!receive_bytes(socket, reinterpret_cast<char*>(&message.header) + in_header,
                       kHeader - in_header) ||
        message.header.payload_bytes > most || in_payload > message.header.payload_bytes)
        return false;
    message.payload.resize(message.header.payload_bytes);
    std::copy_n(early.begin(), in_payload, message.payload.begin());
    return receive_bytes(socket, message.payload.data() + in_payload,
                         message.payload.size() - in_payload);
}

} // namespace

bool send_request(int socket, const Request& request)
{
    RequestHeader header = request.header;
    header.payload_bytes = static_cast<uint32_t>(request.payload.size());
    return send_bytes(socket, &header, sizeof header, request.payload, -1);
}

bool receive_request(int socket, Request& request)
{
    return receive(socket, request, kMaxRequestPayload);
}

bool send_reply(int socket, const Reply& reply, int passed_fd)
{
    ReplyHeader header = reply.header;
    header.payload_bytes = static_cast<uint32_t>(reply.payload.size());
    return send_bytes(socket, &header, sizeof header, reply.payload, passed_fd);
}

bool receive_reply(int socket, Reply& reply, files::Descriptor* passed)
{
    return receive(socket, reply, kMaxReplyPayload, passed);
}

std::string loaded_mark(const std::string& bed_folder)
{
    return bed_folder + "/nyxus-sim.loaded";
}

std::string blind_mark(const std::string& bed_folder, pid_t process)
{
    return bed_folder + "/nyxus-sim.blind." + std::to_string(process);
}

std::string socket_path(const std::string& bed_folder)
{
    return bed_folder + "/nyxus-sim.sock";
}

files::Descriptor lock_events(const std::string& bed)
{
    files::Descriptor lock(
        open((bed + "/events.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    while (lock && flock(lock.get(), LOCK_EX) != 0 && errno == EINTR) {
    }
    return lock;
}

} // namespace sim
