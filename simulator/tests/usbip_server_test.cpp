// SPDX-License-Identifier: Apache-2.0
// The server for USB/IP hosts, over TCP.
#include "usbip/server.h"
#include "usbip_host.h"

#include "bus/bed.h"
#include "bus/registry.h"
#include "faults/fault_file.h"
#include "files/descriptor.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>
#include <vector>

namespace sim::usbip {
namespace {

/// A connection of a host over TCP.
class Wire {
public:
    explicit Wire(uint16_t port) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0))
    {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval patience{kPatienceMs / 1000, 0};
        setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience);
        EXPECT_EQ(connect(socket_.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }

    void send(const Bytes& bytes) const
    {
        EXPECT_EQ(::send(socket_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
    }
    /// As many bytes, or fewer when the other end has closed.
    Bytes receive(size_t count) const
    {
        Bytes bytes(count);
        const ssize_t got = recv(socket_.get(), bytes.data(), count, MSG_WAITALL);
        bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return bytes;
    }
    bool is_closed() const { return receive(1).empty(); }

private:
    files::Descriptor socket_;
};

TEST(UsbipServer, ServesHostsAndUnplugsThem)
{
    const Camera camera;
    auto server = std::make_unique<Server>(Address{"127.0.0.1", 0}, camera.list(), nullptr);
    const Wire lister(server->port());
    lister.send(Peer::operation(kListRequest));
    EXPECT_EQ(lister.receive(1000).size(), 8 + 4 + 312 + 2 * 4);

    Peer peer;
    const Wire first(server->port());
    first.send(Peer::import("1-1"));
    EXPECT_EQ(first.receive(8 + 312).size(), 8 + 312);
    first.send(peer.control(get_descriptor(1, 0, 18)));
    const std::vector<Answer> answers = peer.take(first.receive(kCommandBytes + 18));
    ASSERT_EQ(answers.size(), 1);
    EXPECT_EQ(answers[0].data, device_descriptor(*find_model("rowan-spi")));

    const Wire second(server->port());
    second.send(Peer::import("1-1"));
    EXPECT_EQ(second.receive(100).size(), 8);

    const Wire babbler(server->port());
    babbler.send(Bytes(100, 0x55));
    EXPECT_TRUE(babbler.is_closed());

    camera.node->set_gone();
    EXPECT_TRUE(first.is_closed());
    const Wire idle(server->port());
    server.reset(); // does not wait for those that say nothing
    EXPECT_TRUE(idle.is_closed());
}

// Nobody asks the camera for anything, but its time passes: these 100 s in one.
TEST(UsbipServer, WhatIsPlannedHappensToAFastCameraByItself)
{
    VirtualClock clock;
    TestBed bed(clock);
    PluggedCamera& camera = bed.plug(*find_model("rowan-spi"));
    bed.set_faults(parse_faults(R"(fault = [{when = {time_ms = 100000}, do = "unplug"}])", "plan"));
    Export device;
    device.node = find_node(camera.bus(), camera.address());
    device.record.bus_id = "1-1";
    const Server server(
        Address{"127.0.0.1", 0}, [&] { return std::vector{device}; }, &clock);
    const Wire host(server.port());
    host.send(Peer::import("1-1"));
    EXPECT_EQ(host.receive(8 + 312).size(), 8 + 312);
    EXPECT_TRUE(host.is_closed());
    EXPECT_FALSE(camera.is_plugged());
}

TEST(UsbipServer, TakesAddressesApart)
{
    const struct {
        const char* text;
        const char* host;
        uint16_t port;
        bool is_loopback;
    } good[] = {{"127.0.0.1", "127.0.0.1", 3240, true},
                {"127.9.9.9:0", "127.9.9.9", 0, true},
                {"0.0.0.0:99", "0.0.0.0", 99, false},
                {"10.0.0.1:3240", "10.0.0.1", 3240, false},
                {"[::1]:7", "::1", 7, true},
                {"[::]", "::", 3240, false}};
    for (const auto& [text, host, port, is_loopback] : good) {
        const Address address = parse_address(text);
        EXPECT_EQ(address.host, host) << text;
        EXPECT_EQ(address.port, port) << text;
        EXPECT_EQ(address.is_loopback(), is_loopback) << text;
    }
    for (const char* bad : {"", ":", ":3240", "localhost:x", "127.0.0.1:", "127.0.0.1:65536",
                            "127.0.0.1:-1", "300.0.0.1:1", "[::1", "[]:1", "::1:3240x"})
        EXPECT_THROW(parse_address(bad), std::invalid_argument) << bad;
}

} // namespace
} // namespace sim::usbip
