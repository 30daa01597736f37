// SPDX-License-Identifier: Apache-2.0
#include "usbip/session.h"

#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace sim::usbip {

namespace {

// More than any host asks for. Beyond it the peer would have us wait for, and keep, anything.
constexpr uint32_t kMaxOutBytes = 65536;
constexpr uint32_t kMaxPackets = 1024;
constexpr uint32_t kNoPackets = UINT32_MAX;
constexpr uint32_t kMaxEndpoint = 15;

uint32_t packets_of(const Command& command)
{
    return command.packets == kNoPackets ? 0 : command.packets;
}

// nullptr when it can be followed.
const char* fault_in(const Command& command, uint32_t device)
{
    if (command.code != kSubmit && command.code != kUnlink)
        return "neither a transfer nor a cancellation";
    if (command.device != device)
        return "a transfer with another device than the imported one";
    if (command.code == kUnlink)
        return nullptr;
    if (command.direction > kIn || command.endpoint > kMaxEndpoint)
        return "an endpoint that cannot be";
    if (command.length > INT32_MAX || (command.direction == kOut && command.length > kMaxOutBytes))
        return "a transfer that is too long";
    return packets_of(command) > kMaxPackets ? "a transfer of too many packets" : nullptr;
}

size_t payload_bytes(const Command& command)
{
    if (command.code != kSubmit)
        return 0;
    return (command.direction == kOut ? command.length : 0) +
           size_t{packets_of(command)} * kIsoPacketRecordBytes;
}

std::vector<IsoPacket> parse_packets(std::span<const uint8_t> records)
{
    std::vector<IsoPacket> packets;
    for (; !records.empty(); records = records.subspan(kIsoPacketRecordBytes))
        packets.push_back(parse_iso_packet(records.first<kIsoPacketRecordBytes>()));
    return packets;
}

uint8_t urb_type(const Command& command)
{
    if (packets_of(command) > 0)
        return USBDEVFS_URB_TYPE_ISO;
    switch (command.endpoint) {
        case 0:
            return USBDEVFS_URB_TYPE_CONTROL;
        case kInterruptEndpoint& kMaxEndpoint:
            return USBDEVFS_URB_TYPE_INTERRUPT;
        default:
            return USBDEVFS_URB_TYPE_BULK;
    }
}

// The header and the setup packet both name a direction, and a peer may have them differ.
bool is_contradictory(const Command& command)
{
    const Setup setup = Setup::from_wire(command.setup);
    return command.endpoint == 0 && setup.length > 0 &&
           (setup.is_in() != (command.direction == kIn) || setup.length > command.length);
}

// Of a transfer that the node does not take. ENOENT would tell the host of a cancellation.
int refusal(int status)
{
    switch (status) {
        case -ENOENT:
            return -EPIPE;
        case -ENODEV:
            return -ESHUTDOWN;
        default:
            return status;
    }
}

} // namespace

std::unique_ptr<UsbfsFile> open_for_host(const std::shared_ptr<UsbfsNode>& node)
{
    std::unique_ptr<UsbfsFile> file = node->open();
    if (file->ready_fd() < 0 || file->gone_fd() < 0) // the process has none left
        return nullptr;
    for (uint32_t interface = 0; interface < kInterfaceCount; ++interface) {
        const Reply claimed =
            file->call({{.code = USBDEVFS_DISCONNECT_CLAIM, .first = interface}, {}});
        if (claimed.header.result < 0)
            return nullptr;
    }
    return file;
}

Session::Session(ExportList exports) : exports_(std::move(exports)) {}

Session::Session(const Export& device, std::unique_ptr<UsbfsFile> file)
    : phase_(Phase::kAttached),
      bus_id_(device.record.bus_id),
      device_(device.record.id()),
      file_(std::move(file))
{
}

void Session::feed(std::span<const uint8_t> bytes)
{
    if (has_ended())
        return;
    input_.insert(input_.end(), bytes.begin(), bytes.end());
    advance();
}

void Session::consumed(size_t bytes)
{
    sent_ += std::min(bytes, output().size());
    if (output().empty()) {
        output_.clear();
        sent_ = 0;
    }
    advance();
}

// Messages that are complete, as long as the peer reads what it is answered.
void Session::advance()
{
    std::span<const uint8_t> rest = input_;
    while (wants_input()) {
        const size_t taken = phase_ == Phase::kOperation ? operate(rest) : transfer(rest);
        if (taken == 0)
            break;
        rest = rest.subspan(taken);
    }
    input_.erase(input_.begin(), input_.end() - static_cast<std::ptrdiff_t>(rest.size()));
    collect();
}

void Session::end(std::string complaint)
{
    phase_ = Phase::kEnded;
    complaint_ = std::move(complaint);
    file_.reset();
}

// Both return the bytes of the message that they have followed; 0: it is not complete yet.
size_t Session::operate(std::span<const uint8_t> input)
{
    if (input.size() < kOperationBytes)
        return 0;
    const Operation operation = parse_operation(input.first<kOperationBytes>());
    if (operation.version != kVersion) {
        end("another version of the protocol, or none");
        return kOperationBytes;
    }
    if (operation.code == kListRequest) {
        list_devices();
        return kOperationBytes;
    }
    if (operation.code != kImportRequest) {
        end("an operation that is neither a list nor an import");
        return kOperationBytes;
    }
    if (input.size() < kOperationBytes + kBusIdBytes)
        return 0;
    import_device(parse_bus_id(input.subspan<kOperationBytes, kBusIdBytes>()));
    return kOperationBytes + kBusIdBytes;
}

void Session::list_devices()
{
    const std::vector<Export> devices = exports_();
    put_operation(output_, kListReply, OperationStatus::kOk);
    put_u32(output_, static_cast<uint32_t>(devices.size()));
    for (const Export& device : devices) {
        put_device(output_, device.record);
        put_interfaces(output_, device.record);
    }
    end();
}

void Session::import_device(const std::string& bus_id)
{
    const std::vector<Export> devices = exports_();
    const auto device = std::ranges::find(
        devices, bus_id, [](const Export& candidate) { return candidate.record.bus_id; });
    if (device == devices.end()) {
        put_operation(output_, kImportReply, OperationStatus::kNoDevice);
        end();
        return;
    }
    file_ = open_for_host(device->node);
    if (!file_) {
        put_operation(output_, kImportReply, OperationStatus::kBusy);
        end();
        return;
    }
    put_operation(output_, kImportReply, OperationStatus::kOk);
    put_device(output_, device->record);
    bus_id_ = bus_id;
    device_ = device->record.id();
    phase_ = Phase::kAttached;
}

size_t Session::transfer(std::span<const uint8_t> input)
{
    if (input.size() < kCommandBytes)
        return 0;
    const Command command = parse_command(input.first<kCommandBytes>());
    if (const char* fault = fault_in(command, device_)) {
        end(fault);
        return kCommandBytes;
    }
    const size_t payload = payload_bytes(command);
    if (input.size() - kCommandBytes < payload)
        return 0;
    if (command.code == kSubmit) {
        submit(command, input.subspan(kCommandBytes, payload));
    } else {
        unlink(command);
    }
    return kCommandBytes + payload;
}

void Session::submit(const Command& command, std::span<const uint8_t> payload)
{
    const size_t data_bytes = command.direction == kOut ? command.length : 0;
    Pending pending{command.sequence, command.direction == kIn, command.length,
                    parse_packets(payload.subspan(data_bytes))};
    if (is_contradictory(command) || pending.packets.size() > kMaxIsoPackets) {
        refuse(pending, -EINVAL);
        return;
    }
    const int status = pass_on(command, payload.first(data_bytes), std::move(pending));
    if (status < 0) {
        const auto refused = pending_.extract(next_urb_ - 1);
        refuse(refused.mapped(), refusal(status));
    }
}

int Session::pass_on(const Command& command, std::span<const uint8_t> data, Pending&& pending)
{
    Request request;
    RequestHeader& header = request.header;
    header.code = USBDEVFS_SUBMITURB;
    header.urb = next_urb_++;
    header.urb_type = urb_type(command);
    header.urb_endpoint = static_cast<uint8_t>(command.endpoint | (pending.is_in ? 0x80 : 0));
    header.urb_bytes = command.length;
    if (header.urb_type == USBDEVFS_URB_TYPE_CONTROL) {
        header.urb_bytes += kSetupBytes;
        request.payload.assign(command.setup.begin(), command.setup.end());
        request.payload.insert(request.payload.end(), data.begin(), data.end());
    }
    header.iso_packets = static_cast<uint16_t>(pending.packets.size());
    for (const IsoPacket& packet : pending.packets) {
        const auto* bytes = reinterpret_cast<const uint8_t*>(&packet.length);
        request.payload.insert(request.payload.end(), bytes, bytes + sizeof packet.length);
    }
    pending_.emplace(header.urb, std::move(pending));
    return file_->call(std::move(request)).header.result;
}

// What has been answered already keeps its answer, which has to come first.
void Session::unlink(const Command& command)
{
    const auto victim = std::ranges::find(pending_, command.victim,
                                          [](const auto& entry) { return entry.second.sequence; });
    int status = 0;
    release_held(Time::max());
    if (victim != pending_.end()) {
        const uint64_t urb = victim->first;
        const Reply discarded = file_->call({{.code = USBDEVFS_DISCARDURB, .urb = urb}, {}});
        if (discarded.header.result == 0) {
            pending_.erase(victim);
            status = -ECONNRESET;
        }
        while (pending_.contains(urb) && reap()) {
        }
        release_held(Time::max());
    }
    put_unlink_reply(output_, command.sequence, status);
}

// A camera that goes is noticed even while there is no room to collect what has become of its
// transfers.
void Session::collect()
{
    gone_ = gone_ || (is_attached() && file_->is_gone());
    while (is_attached() && has_room() && reap()) {
    }
    release_held(gone_ ? Time::max() : std::chrono::steady_clock::now());
}

std::optional<Session::Time> Session::next_due() const
{
    return held_.empty() ? std::nullopt : std::optional(held_.front().due);
}

void Session::release_held(Time until)
{
    for (; !held_.empty() && held_.front().due <= until; held_.pop_front()) {
        const Bytes& answer = held_.front().answer;
        output_.insert(output_.end(), answer.begin(), answer.end());
        held_bytes_ -= answer.size();
    }
}

// One packet per microframe, whether it carries something or not.
void Session::hold(uint32_t packets, Bytes&& answer)
{
    constexpr auto kMicroframe = std::chrono::microseconds(125);
    wire_free_ = std::max(wire_free_, std::chrono::steady_clock::now()) + packets * kMicroframe;
    held_bytes_ += answer.size();
    held_.push_back({wire_free_, std::move(answer)});
}

// False when nothing more has finished.
bool Session::reap()
{
    const Reply finished = file_->call({{.code = USBDEVFS_REAPURBNDELAY}, {}});
    if (finished.header.result < 0)
        return false;
    // A cancelled one has left the table.
    if (const auto pending = pending_.extract(finished.header.urb); !pending.empty())
        answer(pending.mapped(), finished);
    return true;
}

// The packets' results come first in the node's reply and last in ours, and never more data than
// the peer has room for.
void Session::answer(const Pending& pending, const Reply& finished)
{
    std::vector<IsoPacket> packets = pending.packets;
    SubmitReply reply{pending.sequence, finished.header.status, finished.header.actual_bytes,
                      static_cast<uint32_t>(packets.size())};
    std::span<const uint8_t> data = finished.payload;
    const size_t results = std::min<size_t>(finished.header.iso_packets, packets.size());
    for (size_t i = 0; i < results; ++i) {
        IsoResult result;
        std::memcpy(&result, data.data(), sizeof result);
        data = data.subspan(sizeof result);
        packets[i].actual = result.actual_bytes;
        packets[i].status = result.status;
        reply.errors += result.status != 0 ? 1 : 0;
    }
    if (pending.is_in) {
        data = data.first(std::min<size_t>(data.size(), pending.length));
        reply.actual = static_cast<uint32_t>(data.size());
    }
    Bytes bytes;
    put_submit_reply(bytes, reply);
    if (pending.is_in)
        bytes.insert(bytes.end(), data.begin(), data.end());
    for (const IsoPacket& packet : packets)
        put_iso_packet(bytes, packet);
    if (!packets.empty() && reply.status == 0) {
        hold(reply.packets, std::move(bytes));
    } else {
        output_.insert(output_.end(), bytes.begin(), bytes.end());
    }
}

void Session::refuse(const Pending& pending, int status)
{
    Reply refused;
    refused.header.status = status;
    answer(pending, refused);
}

} // namespace sim::usbip
