// SPDX-License-Identifier: Apache-2.0
// Feeds a USB/IP session with whatever a peer may send, in pieces of any size, and reads its
// answers: a peer that asks for the list, imports the camera, or has it already. The log and the
// capture look on.
//
// Input: model, settings, then pieces: a length and the bytes.
#include <cstdlib>
#include <initializer_list>
#include <memory>
#include <mutex>

#include "bus/alarms.h"
#include "bus/usbfs.h"
#include "cameras/shipped.h"
#include "chip/clock.h"
#include "support/input.h"
#include "usb/descriptors.h"
#include "usbip/session.h"
#include "watch/capture.h"
#include "watch/log.h"

namespace {

enum Setting : uint8_t { kImported = 1, kUnpluggedLater = 2, kReadsNothing = 4 };
// What a session may keep for a peer that does not read: its limit, and one answer more.
constexpr size_t kMostOutput = 8u << 20;

sim::usbip::Export exported(const std::shared_ptr<sim::UsbfsNode>& node,
                            const sim::CameraModel& model)
{
    sim::usbip::Export device;
    device.node = node;
    device.record.path = "/sys/devices/usb1/1-1";
    device.record.bus_id = "1-1";
    device.record.bus = 1;
    device.record.address = 2;
    std::ranges::copy(sim::device_descriptor(model), device.record.descriptor.begin());
    device.record.interfaces = {{0x0E, 1, 0}, {0x0E, 2, 0}};
    return device;
}

/// What nyxus-sim writes about a camera, and nobody reads.
class Watchers {
public:
    explicit Watchers(sim::UsbCamera& camera) : camera_(camera)
    {
        for (sim::UsbObserver* observer :
             std::initializer_list<sim::UsbObserver*>{&log_, &capture_}) {
            observer->plugged(camera, 1, 2);
            camera_.observers().add(*observer);
        }
    }
    ~Watchers()
    {
        const std::lock_guard lock(camera_.mutex());
        camera_.observers().remove(log_);
        camera_.observers().remove(capture_);
    }

private:
    sim::UsbCamera& camera_;
    sim::VirtualClock clock_;
    sim::LogFile log_file_{"/dev/null", clock_};
    sim::CameraLog log_{log_file_, "", true};
    sim::PcapFile capture_file_{"/dev/null", sim::kLargestPcapRecord,
                                sim::RecordTime(clock_, false)};
    sim::Capture capture_{capture_file_};
};

void converse(sim::usbip::Session& session, sim::UsbfsNode& node, uint8_t settings,
              fuzz::Input& input)
{
    while (!input.empty() && !session.has_ended() && session.wants_input()) {
        const uint8_t length = input.byte();
        session.feed(input.bytes(length + size_t{1}));
        if (session.output().size() > kMostOutput)
            std::abort();
        if ((settings & kReadsNothing) == 0)
            session.consumed(session.output().size());
    }
    if ((settings & kUnpluggedLater) != 0)
        node.set_gone();
    session.collect();
    session.consumed(session.output().size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::Input input(data, size);
    const sim::CameraModel& model = sim::models()[input.byte() % sim::models().size()];
    const uint8_t settings = input.byte();
    sim::VirtualClock clock;
    sim::Alarms alarms(clock);
    const auto camera = std::make_shared<sim::UsbCamera>(model, clock, "FUZZ");
    camera->stream().set_pacing(sim::Pacing::kFlatOut);
    const auto node = std::make_shared<sim::UsbfsNode>(
        camera, 2, [](sim::BusEvent) {}, alarms);
    Watchers watchers(*camera);
    const sim::usbip::Export device = exported(node, model);
    if ((settings & kImported) != 0) {
        sim::usbip::Session session(device, sim::usbip::open_for_host(node));
        converse(session, *node, settings, input);
    } else {
        sim::usbip::Session session([&] { return std::vector{device}; });
        converse(session, *node, settings, input);
    }
    return 0;
}
