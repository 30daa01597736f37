// SPDX-License-Identifier: Apache-2.0
// Video over USB/IP: pictures arrive whole, however the host asks for them.
#include "usbip_host.h"

#include "chip/canvas.h"
#include "chip/picture.h"

#include <sys/resource.h>

#include <vector>

namespace sim::usbip {
namespace {

long peak_memory_kib()
{
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return usage.ru_maxrss;
}

Bytes expected_picture(std::span<const uint8_t> picture)
{
    Bytes expected(kFrameBytes);
    Canvas canvas(320, 240, expected);
    draw_test_pattern(canvas);
    draw_frame_number(canvas, read_frame_number(320, 240, picture, false, false).value_or(0));
    return expected;
}

// uvcvideo reads a payload in pieces of 16 KiB; one of 1536 bytes that is shorter than agreed ends
// with an empty answer.
TEST(UsbipVideo, BulkTransfersCarryAFrame)
{
    constexpr uint32_t kWhole = kFrameBytes + kPayloadHeaderBytes;
    const struct {
        uint32_t payload_bytes;
        uint32_t room;
        size_t empty_answers;
    } cases[] = {{kWhole, kWhole, 0}, {kWhole, 16384, 0}, {1543, 1543, 0}, {1543, 512, 1}};
    for (const auto& [payload_bytes, room, empty_answers] : cases) {
        Camera camera;
        Host host(camera);
        host.commit(payload_bytes);
        Bytes picture;
        size_t empty = 0;
        uint32_t in_payload = 0;
        while (picture.size() < kFrameBytes || in_payload != 0) {
            std::vector<Answer> answers = host.send(host.read(kVideo, room));
            if (answers.empty())
                answers = host.wait();
            ASSERT_EQ(answers.size(), 1);
            const Bytes& data = answers[0].data;
            EXPECT_EQ(answers[0].status, 0);
            ASSERT_LE(data.size(), room);
            empty += data.empty() ? 1 : 0;
            const size_t skipped = in_payload == 0 && !data.empty() ? kPayloadHeaderBytes : 0;
            picture.insert(picture.end(), data.begin() + static_cast<std::ptrdiff_t>(skipped),
                           data.end());
            in_payload += static_cast<uint32_t>(data.size());
            if (data.size() < room || in_payload == payload_bytes)
                in_payload = 0;
        }
        EXPECT_EQ(empty, empty_answers) << payload_bytes << " in " << room;
        EXPECT_EQ(picture, expected_picture(picture));
    }
}

TEST(UsbipVideo, IsochronousPacketsCarryAFrame)
{
    constexpr uint32_t kPackets = 32;
    constexpr uint32_t kPacketBytes = 1024;
    Camera camera("rowan-iso");
    Host host(camera);
    host.commit(0);
    ASSERT_EQ(host.transfer(set_interface(1)).status, 0);
    Bytes picture;
    bool complete = false;
    while (!complete) {
        std::vector<Answer> answers = host.send(host.read_packets(kVideo, kPackets, kPacketBytes));
        if (answers.empty())
            answers = host.wait();
        ASSERT_EQ(answers.size(), 1);
        ASSERT_EQ(answers[0].packets.size(), kPackets);
        std::span<const uint8_t> data = answers[0].data;
        for (uint32_t i = 0; i < kPackets; ++i) {
            const IsoPacket& packet = answers[0].packets[i];
            EXPECT_EQ(packet.offset, i * kPacketBytes);
            EXPECT_EQ(packet.length, kPacketBytes);
            EXPECT_EQ(packet.status, 0);
            ASSERT_LE(packet.actual, data.size());
            if (packet.actual > 0) {
                const auto payload =
                    data.subspan(kPayloadHeaderBytes, packet.actual - kPayloadHeaderBytes);
                picture.insert(picture.end(), payload.begin(), payload.end());
                complete = complete || (data[1] & 0x02) != 0;
            }
            data = data.subspan(packet.actual);
        }
        EXPECT_TRUE(data.empty());
    }
    EXPECT_EQ(picture, expected_picture(picture));
}

TEST(UsbipVideo, RoomThatIsAskedForCostsNoMemory)
{
    constexpr size_t kTransfers = 60;
    constexpr uint32_t kPayloadBytes = 513;
    Camera camera;
    Host host(camera);
    const long before_kib = peak_memory_kib();
    host.commit(kPayloadBytes);
    Bytes reads;
    for (size_t i = 0; i < kTransfers; ++i) {
        const Bytes read = host.read(kVideo, kMaxUrbBytes);
        reads.insert(reads.end(), read.begin(), read.end());
    }
    std::vector<Answer> answers = host.send(reads);
    while (answers.size() < kTransfers) {
        const std::vector<Answer> more = host.wait();
        ASSERT_FALSE(more.empty());
        answers.insert(answers.end(), more.begin(), more.end());
    }
    for (const Answer& answer : answers)
        EXPECT_EQ(answer.data.size(), kPayloadBytes);
    EXPECT_LT(peak_memory_kib() - before_kib, 4 * static_cast<long>(kMaxUrbBytes >> 10));
}

} // namespace
} // namespace sim::usbip
