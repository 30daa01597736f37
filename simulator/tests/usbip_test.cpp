// SPDX-License-Identifier: Apache-2.0
// Simulated cameras over USB/IP: what a host's bytes bring about.
#include "usbip_host.h"

#include <cerrno>
#include <memory>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace sim::usbip {
namespace {

TEST(UsbipList, TellsOfTheDevices)
{
    const Camera camera;
    Session session(camera.list());
    session.feed(Peer::operation(kListRequest));
    EXPECT_TRUE(session.has_ended());
    EXPECT_EQ(session.complaint(), "");
    const std::span<const uint8_t> reply = session.output();
    ASSERT_EQ(reply.size(), 8 + 4 + 312 + 2 * 4);
    const Bytes head{0x01, 0x11, 0x00, 0x05, 0, 0, 0, 0, 0, 0, 0, 1};
    EXPECT_TRUE(std::ranges::equal(reply.first(12), head));
    EXPECT_STREQ(reinterpret_cast<const char*>(&reply[12 + 256]), "1-1");
    // Bus, address, speed; vendor, product, release; class; configurations and interfaces.
    const Bytes numbers{0,    0,    0,    1, 0, 0, 0,    2, 0, 0, 0, 3,
                        0x11, 0x62, 0x06, 1, 1, 0, 0xef, 2, 1, 0, 1, 2};
    EXPECT_TRUE(std::ranges::equal(reply.subspan(12 + 288, 24), numbers));
    const Bytes interfaces{0x0e, 1, 0, 0, 0x0e, 2, 0, 0};
    EXPECT_TRUE(std::ranges::equal(reply.last(8), interfaces));
}

TEST(UsbipImport, GivesTheCameraToOneHostAtATime)
{
    const Camera camera;
    auto first = std::make_unique<Session>(camera.list());
    first->feed(Peer::import("1-1"));
    EXPECT_TRUE(first->is_attached());
    EXPECT_EQ(first->output().size(), 8 + 312);
    const struct {
        const char* bus_id;
        OperationStatus status;
    } refused[] = {{"1-1", OperationStatus::kBusy},
                   {"1-2", OperationStatus::kNoDevice},
                   {"", OperationStatus::kNoDevice},
                   {"1-11111111111111111111111111111", OperationStatus::kNoDevice}};
    for (const auto& [bus_id, status] : refused) {
        Session other(camera.list());
        other.feed(Peer::import(bus_id));
        EXPECT_TRUE(other.has_ended());
        ASSERT_EQ(other.output().size(), 8) << bus_id;
        EXPECT_EQ(other.output()[7], static_cast<uint8_t>(status)) << bus_id;
    }
    first.reset();
    Session next(camera.list());
    next.feed(Peer::import("1-1"));
    EXPECT_TRUE(next.is_attached());
}

TEST(UsbipImport, NonsenseEndsTheSession)
{
    for (const Bytes& nonsense :
         {Bytes(8, 0xFF), Peer::operation(kListRequest, 0x0106), Peer::operation(kListReply),
          Bytes{'G', 'E', 'T', ' ', '/', ' ', 'H', 'T'}}) {
        const Camera camera;
        Session session(camera.list());
        session.feed(nonsense);
        EXPECT_TRUE(session.has_ended());
        EXPECT_NE(session.complaint(), "");
        EXPECT_TRUE(session.output().empty());
    }
}

struct ControlCase {
    const char* name;
    Setup setup;
    Bytes data;
    int status;
    Bytes begin; ///< of the answer
    size_t bytes;
};

TEST(UsbipTransfers, ControlRequestsAreAnsweredAndClipped)
{
    const ControlCase cases[] = {
        {"device", get_descriptor(1, 0, 18), {}, 0, {18, 1, 0, 2, 0xef}, 18},
        {"device in 64 bytes", get_descriptor(1, 0, 64), {}, 0, {18, 1}, 18},
        {"device in 8 bytes", get_descriptor(1, 0, 8), {}, 0, {18, 1}, 8},
        {"configuration in 9 bytes", get_descriptor(2, 0, 9), {}, 0, {9, 2}, 9},
        {"configuration in 1 byte", get_descriptor(2, 0, 1), {}, 0, {9}, 1},
        {"languages", get_descriptor(3, 0, 255), {}, 0, {4, 3, 9, 4}, 4},
        {"serial number", get_descriptor(3, 3, 255), {}, 0, {6, 3, 'S', 0, '1', 0}, 6},
        {"no such string", get_descriptor(3, 9, 255), {}, -EPIPE, {}, 0},
        {"device qualifier",
         get_descriptor(6, 0, 10),
         {},
         0,
         {10, 6, 0, 2, 0xEF, 2, 1, 64, 1, 0},
         10},
        {"debug", get_descriptor(10, 0, 4), {}, -EPIPE, {}, 0},
        {"set configuration", {0x00, 9, 1, 0, 0}, {}, 0, {}, 0},
        {"get configuration", {0x80, 8, 0, 0, 1}, {}, 0, {1}, 1},
        {"no such configuration", {0x00, 9, 7, 0, 0}, {}, -EPIPE, {}, 0},
        {"setting 0", set_interface(0), {}, 0, {}, 0},
        {"no such setting", set_interface(9), {}, -EPIPE, {}, 0},
        {"no such interface", {0x01, 11, 0, 9, 0}, {}, -EPIPE, {}, 0},
        {"clear halt", {0x02, 1, 0, kVideoEndpoint, 0}, {}, 0, {}, 0},
        {"set brightness", kSetBrightness, {77, 0}, 0, {}, 2},
        {"get brightness", kGetBrightness, {}, 0, {77, 0}, 2},
        {"vendor unit's length", {0xA1, kGetLen, 0x0600, kVendorUnit << 8, 2}, {}, 0, {11, 0}, 2},
        {"no such unit", {0xA1, kGetLen, 0x0600, 0x7700, 2}, {}, -EPIPE, {}, 0},
    };
    Camera camera;
    Host host(camera);
    for (const ControlCase& test : cases) {
        const Answer answer = host.transfer(test.setup, test.data);
        EXPECT_EQ(answer.code, kSubmitReply) << test.name;
        EXPECT_EQ(answer.sequence, host.sequence()) << test.name;
        EXPECT_EQ(answer.status, test.status) << test.name;
        EXPECT_EQ(answer.actual, test.bytes) << test.name;
        ASSERT_GE(answer.data.size(), test.begin.size()) << test.name;
        EXPECT_TRUE(std::equal(test.begin.begin(), test.begin.end(), answer.data.begin()))
            << test.name;
    }
    EXPECT_FALSE(host.has_rest());
}

TEST(UsbipTransfers, WhatCannotBeIsRefusedAndTheNextOneWorks)
{
    Camera camera;
    Host host(camera);
    Command contradictory = host.command(kSubmit, kOut, 0, 18);
    contradictory.setup = get_descriptor(1, 0, 18).to_wire();
    Command too_small = host.command(kSubmit, kIn, 0, 4);
    too_small.setup = get_descriptor(1, 0, 18).to_wire();
    const auto with_data = [](const Command& command, size_t bytes) {
        Bytes message = Peer::encode(command);
        message.resize(message.size() + bytes);
        return message;
    };
    const struct {
        const char* name;
        Bytes message;
        size_t packets;
    } cases[] = {
        {"directions differ", with_data(contradictory, 18), 0},
        {"answer larger than its room", Peer::encode(too_small), 0},
        {"no such endpoint", host.read(5, 512), 0},
        {"write to no endpoint", with_data(host.command(kSubmit, kOut, 2, 100), 100), 0},
        {"write to the video endpoint", with_data(host.command(kSubmit, kOut, kVideo, 9), 9), 0},
        {"gigantic room", host.read(kVideo, INT32_MAX), 0},
        {"packets from a bulk endpoint", host.read_packets(kVideo, 8, 1024), 8},
        {"very many packets", host.read_packets(kVideo, 1024, 16), 1024},
    };
    for (const auto& [name, message, packets] : cases) {
        const std::vector<Answer> answers = host.send(message);
        ASSERT_EQ(answers.size(), 1) << name;
        EXPECT_LT(answers[0].status, 0) << name;
        EXPECT_NE(answers[0].status, -ENOENT) << name; // means a cancellation
        EXPECT_EQ(answers[0].actual, 0) << name;
        EXPECT_EQ(answers[0].packets.size(), packets) << name;
        EXPECT_EQ(host.transfer(get_descriptor(1, 0, 18)).actual, 18) << name;
    }
}

TEST(UsbipTransfers, WhatCannotBeFollowedEndsTheSession)
{
    Peer peer;
    Command sound = peer.command(kSubmit, kIn, 0, 18);
    sound.setup = get_descriptor(1, 0, 18).to_wire();
    const auto changed = [&](auto member, uint32_t value) {
        Command command = sound;
        command.*member = value;
        return command;
    };
    Command endless_write = sound;
    endless_write.direction = kOut;
    endless_write.length = 1u << 20;
    for (const Command& command :
         {changed(&Command::code, 0), changed(&Command::code, kSubmitReply),
          changed(&Command::code, UINT32_MAX), changed(&Command::device, 0),
          changed(&Command::direction, 2), changed(&Command::endpoint, 16),
          changed(&Command::length, UINT32_MAX), changed(&Command::length, 1u << 31),
          changed(&Command::packets, 1025), changed(&Command::packets, UINT32_MAX - 1),
          endless_write}) {
        Camera camera;
        Host host(camera);
        EXPECT_TRUE(host.send(Peer::encode(command)).empty());
        EXPECT_TRUE(host.session.has_ended());
        EXPECT_NE(host.session.complaint(), "");
        EXPECT_NE(open_for_host(camera.node), nullptr) << "the camera is not free again";
    }
}

TEST(UsbipTransfers, MessagesMayComeInPieces)
{
    Camera camera;
    Host host(camera);
    for (const Bytes& message : {host.control(kSetBrightness, {9, 0}), host.read_packets(5, 3, 64),
                                 host.control(get_descriptor(1, 0, 18))}) {
        for (size_t i = 0; i + 1 < message.size(); ++i)
            EXPECT_TRUE(host.send({message[i]}).empty());
        EXPECT_EQ(host.send({message.back()}).size(), 1);
    }
}

TEST(UsbipUnlink, PendingAnsweredAndUnknownTransfers)
{
    Camera camera;
    Host host(camera);
    EXPECT_TRUE(host.send(host.read(kInterrupt, 16)).empty());
    const uint32_t pending = host.sequence();
    (void)host.transfer(get_descriptor(1, 0, 18));
    const uint32_t answered = host.sequence();
    const struct {
        uint32_t victim;
        int status;
    } cases[] = {{pending, -ECONNRESET}, {pending, 0}, {answered, 0}, {999, 0}};
    for (const auto& [victim, status] : cases) {
        const std::vector<Answer> answers = host.send(host.unlink(victim));
        ASSERT_EQ(answers.size(), 1);
        EXPECT_EQ(answers[0].code, kUnlinkReply);
        EXPECT_EQ(answers[0].sequence, host.sequence());
        EXPECT_EQ(answers[0].status, status);
    }
    host.session.collect();
    EXPECT_TRUE(host.answers().empty());
}

// A frame that arrives while its transfer is being cancelled: its answer comes first.
TEST(UsbipUnlink, AFinishedTransferIsAnsweredBeforeItsCancellation)
{
    Camera camera;
    Host host(camera);
    host.commit(0);
    {
        const std::lock_guard no_frame_yet(camera.camera->mutex());
        EXPECT_TRUE(host.send(host.read(kVideo, 512)).empty());
    }
    const uint32_t video = host.sequence();
    pollfd ready{host.session.ready_fd(), POLLOUT, 0};
    ASSERT_EQ(poll(&ready, 1, kPatienceMs), 1);
    const std::vector<Answer> answers = host.send(host.unlink(video));
    ASSERT_EQ(answers.size(), 2);
    EXPECT_EQ(answers[0].sequence, video);
    EXPECT_EQ(answers[0].actual, 512);
    EXPECT_EQ(answers[1].code, kUnlinkReply);
    EXPECT_EQ(answers[1].status, 0);
}

// What is on the wire when the host cancels it has been answered.
TEST(UsbipUnlink, AnIsochronousTransferOnTheWireIsAnsweredBeforeItsCancellation)
{
    Camera camera("rowan-iso");
    Host host(camera);
    host.commit(0);
    ASSERT_EQ(host.transfer(set_interface(1)).status, 0);
    EXPECT_TRUE(host.send(host.read_packets(kVideo, 128, 1024)).empty());
    const uint32_t video = host.sequence();
    pollfd ready{host.session.ready_fd(), POLLOUT, 0};
    ASSERT_TRUE(host.session.next_due() || poll(&ready, 1, kPatienceMs) == 1);
    const std::vector<Answer> answers = host.send(host.unlink(video));
    ASSERT_EQ(answers.size(), 2);
    EXPECT_EQ(answers[0].sequence, video);
    EXPECT_EQ(answers[0].packets.size(), 128);
    EXPECT_EQ(answers[1].code, kUnlinkReply);
    EXPECT_EQ(answers[1].status, 0);
}

TEST(UsbipTransfers, AConfigurationEndsTheStream)
{
    for (const uint16_t configuration : {uint16_t{0}, uint16_t{1}}) {
        Camera camera("rowan-iso");
        Host host(camera);
        host.commit(0);
        ASSERT_EQ(host.transfer(set_interface(1)).status, 0);
        ASSERT_TRUE(camera.camera->stream().state().streaming);
        EXPECT_EQ(host.transfer({0x00, 9, configuration, 0, 0}).status, 0);
        EXPECT_FALSE(camera.camera->stream().state().streaming);
        EXPECT_EQ(host.transfer({0x81, 10, 0, kVideoInterface, 1}).data, Bytes{0});
    }
}

TEST(UsbipSession, AnUnplugAnswersWhatIsPendingAndWhatFollows)
{
    Camera camera;
    Host host(camera);
    (void)host.send(host.read(kInterrupt, 16));
    camera.node->set_gone();
    pollfd gone{host.session.gone_fd(), POLLOUT, 0};
    EXPECT_EQ(poll(&gone, 1, 0), 1);
    host.session.collect();
    const std::vector<Answer> answers = host.answers();
    ASSERT_EQ(answers.size(), 1);
    EXPECT_EQ(answers[0].status, -ESHUTDOWN);
    EXPECT_TRUE(host.session.is_gone());
    EXPECT_EQ(host.transfer(get_descriptor(1, 0, 18)).status, -ESHUTDOWN);
    ASSERT_EQ(host.send(host.unlink(1)).size(), 1);
    EXPECT_EQ(host.session.gone_fd(), -1);
}

TEST(UsbipSession, AHostThatReadsNothingCannotFillTheMemory)
{
    Camera camera;
    Host host(camera);
    host.commit(0);
    const Bytes request = host.read(kVideo, kFrameBytes + kPayloadHeaderBytes);
    size_t fed = 0;
    for (; host.session.wants_input() && fed < 1000; ++fed) {
        const size_t before = host.session.output().size();
        host.session.feed(request);
        if (host.session.output().size() == before) {
            pollfd ready{host.session.ready_fd(), POLLOUT, 0};
            ASSERT_EQ(poll(&ready, 1, kPatienceMs), 1);
            host.session.collect();
        }
    }
    EXPECT_LT(fed, 50);
    EXPECT_LT(host.session.output().size(), 5u << 20);
    camera.node->set_gone();
    host.session.collect();
    EXPECT_TRUE(host.session.is_gone());
    EXPECT_EQ(host.session.gone_fd(), -1) << "whoever polls it would not come to rest";
    EXPECT_FALSE(host.answers().empty());
    EXPECT_TRUE(host.session.wants_input());
}

TEST(UsbipSession, PendingTransfersAreBounded)
{
    Camera camera;
    Host host(camera);
    std::vector<Answer> answers;
    for (int i = 0; i < 5000; ++i) {
        for (const Answer& answer : host.send(host.read(kInterrupt, 16)))
            answers.push_back(answer);
    }
    ASSERT_EQ(answers.size(), 5000 - 4096);
    EXPECT_EQ(answers.front().status, -ENOMEM);
    EXPECT_EQ(host.transfer({0x80, 8, 0, 0, 1}).status, -ENOMEM);
}

// Whatever becomes of it, the next host finds the camera in order.
TEST(UsbipSession, SurvivesScrambledConversations)
{
    std::mt19937 random(7); // NOLINT(cert-msc32-c,cert-msc51-cpp): the same every time
    for (int round = 0; round < 500; ++round) {
        Camera camera(round % 2 == 0 ? "rowan-spi" : "rowan-iso");
        auto host = std::make_unique<Host>(camera);
        host->commit(0);
        Bytes conversation;
        for (const Bytes& message :
             {host->control(get_descriptor(2, 0, 255)), host->control(set_interface(1)),
              host->read(kVideo, 4096), host->read_packets(kVideo, 4, 1024),
              host->read(kInterrupt, 16), host->unlink(host->sequence()),
              host->control(kSetBrightness, {1, 0})})
            conversation.insert(conversation.end(), message.begin(), message.end());
        for (int change = 0; change < 3; ++change)
            conversation[random() % conversation.size()] = static_cast<uint8_t>(random());
        host->session.feed(conversation);
        host->session.collect();
        EXPECT_LT(host->session.output().size(), 1u << 20);
        host.reset();
        EXPECT_NE(open_for_host(camera.node), nullptr);
    }
}

} // namespace
} // namespace sim::usbip
