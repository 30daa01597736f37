// SPDX-License-Identifier: Apache-2.0
#include "bus/root_hub.h"

#include "bus/ready_signal.h"
#include "usb/descriptors.h"
#include "usb/standard_request.h"

#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <mutex>

namespace sim {

namespace {

using Bytes = std::vector<uint8_t>;

constexpr int kDeviceBytes = 18;
constexpr uint16_t kHubDescriptor = 0x29;
constexpr uint8_t kGetFromDevice = 0xA0; // a question of the hubs' class
constexpr uint8_t kGetFromPort = 0xA3;

// Unpowered ports are not switched; what is plugged in can be removed.
Bytes hub_descriptor()
{
    static_assert(kPortsPerBus == 15, "two bytes of each bit map");
    return {11, kHubDescriptor, kPortsPerBus, 0x0A, 0x00, 0x01, 0x00, 0x00, 0x00, 0xFF, 0xFF};
}

Bytes descriptor(const Setup& setup)
{
    const auto index = static_cast<uint8_t>(setup.value);
    switch (setup.value >> 8) {
        case kDevice:
            return {kHubDescriptors.begin(), kHubDescriptors.begin() + kDeviceBytes};
        case kConfiguration:
            return index == 0 ? Bytes(kHubDescriptors.begin() + kDeviceBytes, kHubDescriptors.end())
                              : Bytes();
        case kDeviceQualifier:
            return device_qualifier(kHubDescriptors);
        case kString:
            return index == 0   ? language_descriptor()
                   : index == 1 ? string_descriptor(kHubProduct)
                   : index == 2 ? string_descriptor(kManufacturer)
                                : Bytes();
        default:
            return {};
    }
}

/// One opener; whatever it asks is answered at once.
class HubFile final : public Channel {
public:
    explicit HubFile(std::shared_ptr<const RootHub> hub) : hub_(std::move(hub)) {}

    Reply call(Request&& request) override
    {
        const std::lock_guard lock(mutex_);
        const RequestHeader& header = request.header;
        switch (header.code) {
            case USBDEVFS_GET_CAPABILITIES:
                return Reply::number(USBDEVFS_CAP_REAP_AFTER_DISCONNECT);
            case USBDEVFS_GET_SPEED:
                return Reply::number(kHighSpeed);
            case USBDEVFS_CONNECTINFO:
                return Reply::number(kHubAddress);
            case USBDEVFS_GETDRIVER:
                return header.first == 0 ? Reply{{}, {'h', 'u', 'b'}} : Reply::result(-ENODATA);
            case USBDEVFS_SETCONFIGURATION:
            case USBDEVFS_CLAIMINTERFACE:
            case USBDEVFS_DISCONNECT_CLAIM:
                return Reply::result(-EBUSY); // the driver does not let go
            case USBDEVFS_RESET:
                return Reply::result(0);
            case USBDEVFS_SUBMITURB:
                return submit(header, request.payload);
            case USBDEVFS_DISCARDURB:
                return Reply::result(-EINVAL);
            case USBDEVFS_REAPURB:
            case USBDEVFS_REAPURBNDELAY:
                return reap();
            default:
                return Reply::result(-ENOTTY);
        }
    }
    int ready_fd() const override { return ready_.fd(); }

private:
    static constexpr size_t kMostFinished = 4096;

    Reply submit(const RequestHeader& header, const Bytes& payload)
    {
        if (header.urb_type != USBDEVFS_URB_TYPE_CONTROL)
            return Reply::result(-EBUSY);
        if (payload.size() < kSetupBytes || header.urb_bytes < kSetupBytes)
            return Reply::result(-EINVAL);
        const Setup setup = Setup::from_wire(std::span(payload).first<kSetupBytes>());
        if (setup.length > header.urb_bytes - kSetupBytes)
            return Reply::result(-EINVAL);
        if (finished_.size() >= kMostFinished)
            return Reply::result(-ENOMEM);
        std::optional<Bytes> answer = hub_->answer(setup);
        Reply finished{{.urb = header.urb, .status = answer ? 0 : -EPIPE}, {}};
        if (answer) {
            answer->resize(std::min<size_t>(answer->size(), setup.length));
            finished.header.actual_bytes = static_cast<uint32_t>(answer->size());
            finished.payload = *std::move(answer);
        }
        if (header.first == 1 && finished_.empty()) {
            finished.header.completed = 1;
            return finished;
        }
        finished_.push_back(std::move(finished));
        ready_.set(true);
        return Reply::result(0);
    }

    Reply reap()
    {
        if (finished_.empty())
            return Reply::result(-EAGAIN);
        Reply reply = std::move(finished_.front());
        finished_.pop_front();
        ready_.set(!finished_.empty());
        return reply;
    }

    std::shared_ptr<const RootHub> hub_;
    std::mutex mutex_;
    ReadySignal ready_;
    std::deque<Reply> finished_;
};

} // namespace

void RootHub::set_connected(unsigned port, bool connected)
{
    const uint32_t bit = 1U << port;
    if (connected) {
        connected_ |= bit;
    } else {
        connected_ &= ~bit;
    }
}

std::unique_ptr<Channel> RootHub::open() const
{
    return std::make_unique<HubFile>(shared_from_this());
}

std::optional<std::vector<uint8_t>> RootHub::answer(const Setup& setup) const
{
    constexpr uint8_t kSelfPowered = 1;
    constexpr uint8_t kPowered = 0x01; // of the second byte, as is high speed
    constexpr uint8_t kWithDevice = 0x05;
    constexpr uint8_t kConnectedAndEnabled = 0x03;
    if (setup.request_type == kGetFromDevice && setup.request == kGetDescriptor &&
        (setup.value >> 8 == kHubDescriptor || setup.value == 0))
        return hub_descriptor();
    if (setup.request_type == kGetFromDevice && setup.request == kGetStatus)
        return Bytes(4);
    if (setup.request_type == kGetFromPort && setup.request == kGetStatus && setup.index >= 1 &&
        setup.index <= kPortsPerBus) {
        const bool has_device = (connected_ >> setup.index & 1) != 0;
        return has_device ? Bytes{kConnectedAndEnabled, kWithDevice, 0, 0}
                          : Bytes{0, kPowered, 0, 0};
    }
    if (setup.type() != kStandardType || !setup.is_in())
        return std::nullopt;
    switch (setup.request) {
        case kGetDescriptor: {
            Bytes bytes = descriptor(setup);
            return bytes.empty() ? std::nullopt : std::optional(std::move(bytes));
        }
        case kGetStatus:
            return Bytes{setup.recipient() == kDeviceRecipient ? kSelfPowered : uint8_t{0}, 0};
        case kGetConfiguration:
            return Bytes{1};
        case kGetInterface:
            return Bytes{0};
        default:
            return std::nullopt;
    }
}

} // namespace sim
