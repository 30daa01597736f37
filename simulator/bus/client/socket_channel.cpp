// SPDX-License-Identifier: Apache-2.0
// The way to cameras of another process: one connection per opened node.
#include "bus/node_hook.h"
#include "bus/ready_signal.h"
#include "bus/transport.h"
#include "files/unix_socket.h"

#include <linux/usbdevice_fs.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <utility>

namespace sim {

namespace {

Reply gone()
{
    Reply reply;
    reply.header.result = -ENODEV;
    return reply;
}

/// In the order of coming, like the kernel's lock of a device: a program's thread that queues
/// transfers in a loop lets another one in between, and no more than that.
class TurnLock {
public:
    void lock()
    {
        std::unique_lock lock(mutex_);
        const uint64_t turn = next_++;
        changed_.wait(lock, [&] { return turn == current_; });
    }
    void unlock()
    {
        const std::lock_guard lock(mutex_);
        ++current_;
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    uint64_t next_ = 0;
    uint64_t current_ = 0;
};

class SocketChannel final : public Channel {
public:
    SocketChannel(files::Descriptor socket, files::Descriptor ready)
        : socket_(std::move(socket)), ready_(std::move(ready))
    {
    }

    // The server has dropped claims and URBs when this returns. The child of a fork closes its
    // copy only: the connection is its parent's.
    ~SocketChannel() override
    {
        if (process_ == getpid())
            (void)SocketChannel::call({{.code = kCloseNode}, {}});
    }

    Reply call(Request&& request) override
    {
        const std::lock_guard lock(mutex_);
        const bool reaps = request.header.code == USBDEVFS_REAPURBNDELAY;
        if (reaps && !completions_.empty())
            return take_completion();
        // libusb asks until nothing is left; the server need not be asked for that.
        if (reaps && !is_ready())
            return Reply::result(-EAGAIN);
        if (request.header.code == USBDEVFS_SUBMITURB && completions_.size() < kMostCompletions)
            request.header.first = 1;
        Reply reply;
        if (!send_request(socket_.get(), request) || !receive_reply(socket_.get(), reply))
            return gone();
        if (reply.header.completed == 0)
            return reply;
        if (completions_.empty())
            ReadySignal::take(ready_.get());
        completions_.push_back(std::move(reply));
        return Reply::result(0);
    }

    int ready_fd() const override { return ready_.get(); }

private:
    static constexpr size_t kMostCompletions = 64;

    Reply take_completion()
    {
        Reply reply = std::move(completions_.front());
        completions_.pop_front();
        if (completions_.empty())
            ReadySignal::release(ready_.get());
        return reply;
    }

    bool is_ready() const
    {
        pollfd ready{ready_.get(), POLLOUT, 0};
        return poll(&ready, 1, 0) != 0;
    }

    TurnLock mutex_;
    pid_t process_ = getpid();
    files::Descriptor socket_;
    files::Descriptor ready_;
    std::deque<Reply> completions_; ///< older than any that the server still has
};

} // namespace

std::unique_ptr<Channel> connect_node(const NodeName& node)
{
    const char* bed = std::getenv("UMOCKDEV_DIR");
    files::Descriptor socket;
    if (bed != nullptr)
        socket = files::connect_to(socket_path(bed));
    if (!socket)
        return nullptr;
    const Request request{{.code = kOpenNode, .first = node.bus, .second = node.address}, {}};
    Reply reply;
    files::Descriptor ready;
    if (!send_request(socket.get(), request) || !receive_reply(socket.get(), reply, &ready) ||
        reply.header.result < 0 || !ready)
        return nullptr;
    return std::make_unique<SocketChannel>(std::move(socket), std::move(ready));
}

} // namespace sim
