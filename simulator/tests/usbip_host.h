// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "usbip/session.h"
#include "usbip_peer.h"

#include "bus/usbfs.h"
#include "cameras/shipped.h"
#include "usb/descriptors.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <memory>
#include <thread>
#include <vector>

namespace sim::usbip {

inline constexpr uint32_t kVideo = kVideoEndpoint & 0x0F;
inline constexpr uint32_t kInterrupt = kInterruptEndpoint & 0x0F;
inline constexpr int kPatienceMs = 10'000;
inline constexpr uint32_t kFrameBytes = 320 * 240 * 2;

constexpr Setup get_descriptor(uint8_t type, uint8_t index, uint16_t length)
{
    return {0x80, 6, static_cast<uint16_t>(type << 8 | index), 0, length};
}

constexpr Setup set_interface(uint16_t setting)
{
    return {0x01, 11, setting, kVideoInterface, 0};
}

inline constexpr Setup kSetBrightness{0x21, kSetCur, 0x0200, kProcessingUnit << 8, 2};
inline constexpr Setup kGetBrightness{0xA1, kGetCur, 0x0200, kProcessingUnit << 8, 2};

/// A camera on no bus but the one that the host makes of it.
class Camera {
public:
    explicit Camera(const char* model = "rowan-spi")
        : camera(std::make_shared<UsbCamera>(*find_model(model), clock_, "S1")),
          node(std::make_shared<UsbfsNode>(
              camera, 2, [](BusEvent) {}, alarms_))
    {
        camera->stream().set_pacing(Pacing::kFlatOut);
    }

    Export exported() const
    {
        Export device;
        device.node = node;
        device.record.path = "/sys/devices/usb1/1-1";
        device.record.bus_id = "1-1";
        device.record.bus = 1;
        device.record.address = 2;
        std::ranges::copy(device_descriptor(camera->controller().model),
                          device.record.descriptor.begin());
        device.record.interfaces = {{0x0e, 1, 0}, {0x0e, 2, 0}};
        return device;
    }
    ExportList list() const
    {
        return [this] { return std::vector{exported()}; };
    }

private:
    VirtualClock clock_;
    Alarms alarms_{clock_};

public:
    std::shared_ptr<UsbCamera> camera;
    std::shared_ptr<UsbfsNode> node;
};

/// A host that has imported the camera.
class Host : public Peer {
public:
    explicit Host(Camera& camera) : session(camera.exported(), open_for_host(camera.node)) {}

    /// Answers that are there at once.
    std::vector<Answer> send(const Bytes& bytes)
    {
        session.feed(bytes);
        return answers();
    }
    std::vector<Answer> answers()
    {
        std::vector<Answer> all = take(session.output());
        session.consumed(session.output().size());
        return all;
    }
    Answer transfer(const Setup& setup, const Bytes& data = {})
    {
        const std::vector<Answer> got = send(control(setup, data));
        EXPECT_EQ(got.size(), 1);
        return got.empty() ? Answer{} : got.front();
    }
    /// The answers that the camera takes its time for.
    std::vector<Answer> wait()
    {
        // Taking the last answers may have collected the next.
        if (session.output().empty() && !session.next_due()) {
            pollfd ready{session.ready_fd(), POLLOUT, 0};
            EXPECT_EQ(poll(&ready, 1, kPatienceMs), 1);
            session.collect();
        }
        if (const auto due = session.next_due()) { // isochronous ones take their time
            std::this_thread::sleep_until(*due);
            session.collect();
        }
        return answers();
    }
    void commit(uint32_t payload_bytes)
    {
        Bytes record(26);
        record[3] = 1;
        for (size_t i = 0; i < 4; ++i)
            record[22 + i] = static_cast<uint8_t>(payload_bytes >> (8 * i));
        EXPECT_EQ(transfer({0x21, kSetCur, 0x0200, kVideoInterface, 26}, record).status, 0);
    }

    Session session;
};

} // namespace sim::usbip
