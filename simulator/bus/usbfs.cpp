// SPDX-License-Identifier: Apache-2.0
#include "bus/usbfs.h"

#include "usb/standard_request.h"

#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace sim {

namespace {

constexpr uint32_t kCapabilities =
    USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_BULK_CONTINUATION | USBDEVFS_CAP_NO_PACKET_SIZE_LIM |
    USBDEVFS_CAP_BULK_SCATTER_GATHER | USBDEVFS_CAP_REAP_AFTER_DISCONNECT;
constexpr size_t kMaxUrbsInFlight = 4096;

Setup interface_request(uint32_t interface, uint32_t setting)
{
    return {.request_type = kInterfaceRecipient,
            .request = kSetInterface,
            .value = static_cast<uint16_t>(setting),
            .index = static_cast<uint16_t>(interface)};
}

} // namespace

UsbfsNode::UsbfsNode(std::shared_ptr<UsbCamera> camera, unsigned address, EventHook on_event,
                     Alarms& alarms)
    : camera_(std::move(camera)),
      address_(address),
      on_event_(std::move(on_event)),
      alarms_(alarms),
      pump_(
          camera_->mutex(), [this] { return frame_due(); }, [this] { carry_frame(); })
{
}

std::unique_ptr<UsbfsFile> UsbfsNode::open()
{
    return std::make_unique<UsbfsFile>(shared_from_this());
}

void UsbfsNode::set_memory(std::shared_ptr<UsbfsMemory> memory)
{
    const std::lock_guard lock(camera_->mutex());
    memory_ = std::move(memory);
}

void UsbfsNode::set_gone()
{
    const std::lock_guard lock(camera_->mutex());
    if (std::exchange(gone_, true))
        return;
    camera_->stream().stop();
    for (UsbfsFile* file : files_)
        file->cancel_all(-ESHUTDOWN);
    gone_signal_.set(true);
}

bool UsbfsNode::is_gone()
{
    const std::lock_guard lock(camera_->mutex());
    return gone_;
}

void UsbfsNode::await_late_answer(uint64_t due_us)
{
    const uint64_t now_us = alarms_.now_us();
    const uint64_t delay_us = due_us > now_us ? due_us - now_us : 0;
    alarms_.set(delay_us, Alarms::Passes::kWhileWaiting,
                [weak = weak_from_this()](uint64_t time_us) {
                    const std::shared_ptr<UsbfsNode> node = weak.lock();
                    if (!node)
                        return;
                    const std::lock_guard lock(node->camera_->mutex());
                    for (UsbfsFile* file : node->files_)
                        file->finish_late(time_us);
                });
}

UsbfsFile::UsbfsFile(std::shared_ptr<UsbfsNode> node)
    : node_(std::move(node)), camera_(*node_->camera_)
{
    const std::lock_guard lock(camera_.mutex());
    node_->files_.push_back(this);
}

UsbfsFile::~UsbfsFile()
{
    const std::lock_guard lock(camera_.mutex());
    cancel_all(-ENOENT);
    (void)release(kVideoInterface);
    std::replace(node_->owners_.begin(), node_->owners_.end(), this,
                 static_cast<UsbfsFile*>(nullptr));
    std::erase(node_->files_, this);
}

Reply UsbfsFile::call(Request&& request)
{
    const std::lock_guard lock(camera_.mutex());
    const uint32_t code = request.header.code;
    const bool is_reap = code == USBDEVFS_REAPURB || code == USBDEVFS_REAPURBNDELAY;
    if (node_->gone_ && !is_reap)
        return Reply::result(-ENODEV);
    return dispatch(std::move(request));
}

Reply UsbfsFile::dispatch(Request&& request)
{
    const RequestHeader& header = request.header;
    switch (header.code) {
        case USBDEVFS_GET_CAPABILITIES:
            return Reply::number(kCapabilities);
        case USBDEVFS_GET_SPEED:
            return Reply::number(kHighSpeed);
        case USBDEVFS_CONNECTINFO:
            return Reply::number(node_->address_);
        case USBDEVFS_DISCONNECT_CLAIM:
            return Reply::result(take_from_driver(header.first, header.second));
        case USBDEVFS_CLAIMINTERFACE:
            return Reply::result(claim(header.first));
        case USBDEVFS_RELEASEINTERFACE:
            return Reply::result(release(header.first));
        case USBDEVFS_GETDRIVER:
            return driver_name(header.first);
        case USBDEVFS_IOCTL:
            return Reply::result(driver_request(header.first, header.second));
        case USBDEVFS_SETINTERFACE:
            return Reply::result(set_interface(header.first, header.second));
        case USBDEVFS_SETCONFIGURATION:
            return Reply::result(set_configuration(header.first));
        case USBDEVFS_CLEAR_HALT:
            return Reply::result(clear_halt(header.first));
        case USBDEVFS_RESETEP:
            return Reply::result(check_endpoint(header.first));
        case USBDEVFS_RESET:
            (void)camera_.configure(1); // as Linux does behind it
            return Reply::result(0);
        case USBDEVFS_SUBMITURB:
            return submit_and_complete(std::move(request));
        case USBDEVFS_DISCARDURB:
            return Reply::result(discard(header.urb));
        case USBDEVFS_REAPURB:
        case USBDEVFS_REAPURBNDELAY:
            return reap();
        default:
            return Reply::result(-ENOTTY);
    }
}

// Also called on use: whatever needs an interface claims it silently, as Linux does.
int UsbfsFile::claim(uint32_t interface)
{
    if (interface >= kInterfaceCount)
        return -ENOENT;
    UsbfsFile*& owner = node_->owners_[interface];
    if (node_->driver_has_[interface] || (owner != nullptr && owner != this))
        return -EBUSY;
    owner = this;
    return 0;
}

// libusb wants it from no usbfs: refused also to who has the interface already.
int UsbfsFile::take_from_driver(uint32_t interface, uint32_t flags)
{
    const bool is_claimed = interface < kInterfaceCount && node_->owners_[interface] != nullptr;
    if (is_claimed && (flags & USBDEVFS_DISCONNECT_CLAIM_EXCEPT_DRIVER) != 0)
        return -EBUSY;
    node_->unbind_driver(interface);
    return claim(interface);
}

int UsbfsFile::release(uint32_t interface)
{
    if (interface >= kInterfaceCount || node_->owners_[interface] != this)
        return -EINVAL;
    node_->owners_[interface] = nullptr;
    cancel_interface(interface);
    if (!node_->gone_) {
        if (interface == kVideoInterface && camera_.video_setting() != 0)
            tell_request(interface_request(interface, 0), 0);
        (void)camera_.set_interface(interface, 0); // as it was before anybody used it
    }
    return 0;
}

void UsbfsFile::cancel_interface(uint32_t interface)
{
    const uint8_t endpoint = interface == kVideoInterface ? kVideoEndpoint : kInterruptEndpoint;
    for (auto urb = pending_.begin(); urb != pending_.end();) {
        const auto next = std::next(urb);
        if (urb->endpoint == endpoint)
            cancel(urb, -ENOENT);
        urb = next;
    }
}

int UsbfsFile::set_interface(uint32_t interface, uint32_t setting)
{
    if (const int status = claim(interface); status < 0)
        return status;
    cancel_interface(interface);
    if (!camera_.has_setting(interface, setting))
        return -EINVAL;
    tell_request(interface_request(interface, setting), 0);
    (void)camera_.set_interface(interface, setting);
    return 0;
}

int UsbfsFile::set_configuration(uint32_t number)
{
    const bool claimed = std::any_of(node_->owners_.begin(), node_->owners_.end(),
                                     [](const UsbfsFile* owner) { return owner != nullptr; });
    if (claimed || node_->driver_has_ != decltype(node_->driver_has_){})
        return -EBUSY;
    // 0 and -1 both unconfigure the device.
    if (number > 1 && number != UINT32_MAX)
        return -EINVAL;
    const uint16_t configuration = number == 1 ? 1 : 0;
    tell_request({.request = kSetConfiguration, .value = configuration}, 0);
    (void)camera_.configure(configuration);
    return 0;
}

int UsbfsFile::check_endpoint(uint32_t endpoint)
{
    switch (endpoint) {
        case kInterruptEndpoint:
            return claim(kControlInterface);
        case kVideoEndpoint:
            return claim(kVideoInterface);
        default:
            return -ENOENT;
    }
}

int UsbfsFile::clear_halt(uint32_t endpoint)
{
    const int status = check_endpoint(endpoint);
    if (status < 0)
        return status;
    tell_request({.request_type = kEndpointRecipient,
                  .request = kClearFeature,
                  .value = kEndpointHalt,
                  .index = static_cast<uint16_t>(endpoint)},
                 0);
    camera_.set_halted(static_cast<uint16_t>(endpoint), false);
    return 0;
}

// A completion comes along where the opener takes it, and is the next one in order.
Reply UsbfsFile::submit_and_complete(Request&& request)
{
    const bool is_control = request.header.urb_type == USBDEVFS_URB_TYPE_CONTROL;
    const bool may_come_along = is_control && request.header.first == 1 && finished_.empty();
    comes_along_ = may_come_along;
    Reply reply = Reply::result(submit(std::move(request)));
    comes_along_ = false;
    if (reply.header.result >= 0 && may_come_along && finished_.size() == 1) {
        reply = reap();
        reply.header.completed = 1;
    }
    update_ready();
    return reply;
}

int UsbfsFile::submit(Request&& request)
{
    const RequestHeader& header = request.header;
    if (header.urb_bytes > kMaxUrbBytes || header.iso_packets > kMaxIsoPackets)
        return -EINVAL;
    if (pending_.size() + finished_.size() >= kMaxUrbsInFlight)
        return -ENOMEM;
    std::optional<UsbfsMemory::Loan> loan = UsbfsMemory::lend(node_->memory_, header.urb_bytes);
    if (!loan)
        return -ENOMEM;
    Urb urb;
    urb.loan = *std::move(loan);
    urb.id = camera_.next_transfer_id();
    urb.address = header.urb;
    urb.type = header.urb_type;
    urb.endpoint = header.urb_endpoint;
    urb.buffer_bytes = header.urb_bytes;
    if (urb.type == USBDEVFS_URB_TYPE_CONTROL) {
        urb.data = std::move(request.payload);
        return submit_control(std::move(urb));
    }
    return submit_to_endpoint(std::move(urb), request);
}

int UsbfsFile::submit_control(Urb&& urb)
{
    if ((urb.endpoint & 0x7F) != 0 || urb.data.size() < kSetupBytes ||
        urb.buffer_bytes < kSetupBytes)
        return -EINVAL;
    const Setup setup = Setup::from_wire(std::span(urb.data).first<kSetupBytes>());
    if (setup.length > urb.buffer_bytes - kSetupBytes)
        return -EINVAL;
    if (setup.recipient() == kInterfaceRecipient && setup.type() != kVendorType) {
        if (const int status = claim(setup.interface()); status < 0)
            return status;
    }
    urb.data.resize(kSetupBytes + setup.length);
    tell(&UsbObserver::submitted, urb);
    const Outcome outcome = camera_.control(setup, std::span(urb.data).subspan(kSetupBytes));
    urb.restart = outcome.restart;
    switch (outcome.kind) {
        case Outcome::Kind::kRefused:
            urb.status = outcome.status;
            tell(&UsbObserver::refused, urb);
            return outcome.status;
        case Outcome::Kind::kPending:
            pending_.push_back(std::move(urb));
            return 0;
        case Outcome::Kind::kLate:
            urb.status = outcome.status;
            urb.actual_bytes = outcome.moved;
            urb.late_until_us = outcome.due_us;
            pending_.push_back(std::move(urb));
            node_->await_late_answer(outcome.due_us);
            return 0;
        case Outcome::Kind::kUnplugSilent:
        case Outcome::Kind::kUnplugAnnounced:
            node_->set_gone();
            break;
        case Outcome::Kind::kFinished:
            break;
    }
    urb.status = outcome.status;
    urb.actual_bytes = outcome.moved;
    finish(std::move(urb));
    if (outcome.kind == Outcome::Kind::kUnplugSilent) {
        node_->on_event_(BusEvent::kUnplugSilent);
    } else if (outcome.kind == Outcome::Kind::kUnplugAnnounced) {
        node_->on_event_(BusEvent::kUnplugAnnounced);
    }
    return 0;
}

int UsbfsFile::submit_to_endpoint(Urb&& urb, const Request& request)
{
    if (const int status = check_endpoint(urb.endpoint); status < 0)
        return status;
    std::vector<uint32_t> packet_bytes(request.header.iso_packets);
    if (request.payload.size() != packet_bytes.size() * sizeof(uint32_t))
        return -EINVAL;
    if (!packet_bytes.empty())
        std::memcpy(packet_bytes.data(), request.payload.data(), request.payload.size());
    if (camera_.is_halted(urb.endpoint) && !camera_.stream().state().streaming) {
        tell(&UsbObserver::submitted, urb);
        urb.status = -EPIPE;
        finish(std::move(urb));
        return 0;
    }
    if (urb.endpoint == kVideoEndpoint)
        return submit_video(std::move(urb), packet_bytes);
    // Linux takes a bulk URB for an interrupt endpoint, but nothing else that does not fit.
    if (urb.type != USBDEVFS_URB_TYPE_BULK && urb.type != USBDEVFS_URB_TYPE_INTERRUPT)
        return -EINVAL;
    tell(&UsbObserver::submitted, urb);
    pending_.push_back(std::move(urb));
    return 0;
}

int UsbfsFile::discard(uint64_t address)
{
    const auto urb =
        std::find_if(pending_.begin(), pending_.end(),
                     [address](const Urb& candidate) { return candidate.address == address; });
    if (urb == pending_.end())
        return -EINVAL;
    cancel(urb, -ENOENT);
    return 0;
}

void UsbfsFile::cancel(std::list<Urb>::iterator urb, int status)
{
    if (urb->type == USBDEVFS_URB_TYPE_CONTROL)
        camera_.record(Setup::from_wire(std::span(urb->data).first<kSetupBytes>()), {}, status);
    urb->status = status;
    urb->actual_bytes = 0;
    finish(std::move(*urb));
    pending_.erase(urb);
}

void UsbfsFile::finish_late(uint64_t now_us)
{
    for (auto urb = pending_.begin(); urb != pending_.end();) {
        const auto next = std::next(urb);
        if (urb->late_until_us != 0 && urb->late_until_us <= now_us) {
            const auto setup = Setup::from_wire(std::span(urb->data).first<kSetupBytes>());
            const auto moved = std::span(urb->data).subspan(kSetupBytes, urb->actual_bytes);
            camera_.record(setup, moved, urb->status);
            finish(std::move(*urb));
            pending_.erase(urb);
        }
        urb = next;
    }
}

void UsbfsFile::cancel_all(int status)
{
    while (!pending_.empty())
        cancel(pending_.begin(), status);
}

void UsbfsFile::finish(Urb&& urb)
{
    tell(&UsbObserver::finished, urb);
    if (urb.restart && !node_->gone_)
        node_->on_event_(BusEvent::kRestart);
    finished_bytes_ += urb.data.size();
    finished_.push_back(std::move(urb));
    update_ready();
}

Reply UsbfsFile::reap()
{
    if (finished_.empty())
        return Reply::result(node_->gone_ ? -ENODEV : -EAGAIN);
    Urb urb = std::move(finished_.front());
    finished_.pop_front();
    finished_bytes_ -= urb.data.size();
    update_ready();

    Reply reply;
    reply.header.urb = urb.address;
    reply.header.status = urb.status;
    reply.header.actual_bytes = urb.actual_bytes;
    reply.header.iso_packets = static_cast<uint16_t>(urb.packets.size());
    const auto* packets = reinterpret_cast<const uint8_t*>(urb.packets.data());
    reply.payload.assign(packets, packets + urb.packets.size() * sizeof(IsoResult));

    const bool is_control = urb.type == USBDEVFS_URB_TYPE_CONTROL;
    if (urb.endpoint == kVideoEndpoint)
        node_->pump_.wake(); // there may be room again
    if (!is_control && urb.packets.empty()) {
        reply.payload = std::move(urb.data); // a whole frame, most often
        return reply;
    }
    const bool is_in = is_control ? (urb.data[0] & 0x80) != 0 : (urb.endpoint & 0x80) != 0;
    if (is_in) {
        const size_t skipped = is_control ? kSetupBytes : 0;
        const size_t bytes = std::min<size_t>(urb.actual_bytes, urb.data.size() - skipped);
        const auto first = urb.data.begin() + static_cast<std::ptrdiff_t>(skipped);
        reply.payload.insert(reply.payload.end(), first,
                             first + static_cast<std::ptrdiff_t>(bytes));
    }
    return reply;
}

} // namespace sim
