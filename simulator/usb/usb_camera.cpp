// SPDX-License-Identifier: Apache-2.0
#include "usb/usb_camera.h"

#include "chip/firmware_image.h"
#include "usb/descriptors.h"
#include "usb/standard_request.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <iterator>
#include <utility>

namespace sim {

namespace {

bool is_question(uint8_t standard_request)
{
    switch (standard_request) {
        case kGetStatus:
        case kGetDescriptor:
        case kGetConfiguration:
        case kGetInterface:
            return true;
        default:
            return false;
    }
}

bool has_recipient(const Setup& setup)
{
    switch (setup.recipient()) {
        case kDeviceRecipient:
            return true;
        case kInterfaceRecipient:
            return setup.index < kInterfaceCount;
        case kEndpointRecipient:
            return (setup.index & 0x7F) == 0 || setup.index == kVideoEndpoint ||
                   setup.index == kInterruptEndpoint;
        default:
            return false;
    }
}

// The code of a class request names the direction, too. The encoder's unit understands other codes.
bool is_contradictory(const Setup& setup)
{
    constexpr uint8_t kGet = 0x80;
    const bool has_code = setup.request == kSetCur || (setup.request & kGet) != 0;
    const bool may_be_swapped =
        !has_code && setup.interface() == kControlInterface && setup.unit() == kH264Unit;
    return !may_be_swapped && setup.is_in() != ((setup.request & kGet) != 0);
}

} // namespace

UsbCamera::UsbCamera(const CameraModel& model, Clock& clock, std::string serial,
                     std::span<const uint8_t> rom)
    : clock_(clock),
      controller_(model, clock, rom),
      video_(controller_.model),
      stream_(controller_),
      serial_(std::move(serial))
{
    learn_serial();
    stream_.set_listener([this] { observers_.tell(&UsbObserver::video_changed, stream_); });
}

void UsbCamera::set_fault(FaultHook hook)
{
    fault_ = std::move(hook);
    ordinal_ = 0;
}

void UsbCamera::set_answer_fault(AnswerFaultHook hook)
{
    answer_fault_ = std::move(hook);
}

void UsbCamera::record(const Setup& setup, std::span<const uint8_t> moved, int status)
{
    if (!tracing_)
        return;
    if (trace_.size() >= kTraceTransfers)
        trace_.pop_front();
    trace_.push_back({setup.to_wire(), {moved.begin(), moved.end()}, status});
}

void UsbCamera::restart()
{
    controller_.restart();
    await_host();
}

void UsbCamera::power_cycle()
{
    controller_.power_cycle();
    await_host();
}

void UsbCamera::await_host()
{
    video_ = VideoControls(controller_.model);
    stream_.set_picture(video_.picture_settings());
    learn_serial();
    (void)configure(1);
}

void UsbCamera::learn_serial()
{
    usb_serial_ = controller_.firmware.external ? mfi_serial(controller_.rom) : "";
    if (usb_serial_.empty())
        usb_serial_ = serial_;
}

bool UsbCamera::configure(unsigned number)
{
    if (number > 1)
        return false;
    configuration_ = static_cast<uint8_t>(number);
    halted_ = {};
    video_setting_ = 0;
    stream_.stop();
    return true;
}

bool UsbCamera::has_setting(unsigned number, unsigned setting)
{
    const CameraModel& model = controller_.model;
    const bool has_several = number == kVideoInterface && model.streams_isochronously;
    return number < kInterfaceCount && setting <= (has_several ? model.iso_packet_bytes.size() : 0);
}

// An isochronous camera streams while its interface has a setting with an endpoint; a bulk camera
// has none of these and takes setting 0 for the end of its stream.
bool UsbCamera::set_interface(unsigned number, unsigned setting)
{
    if (!has_setting(number, setting))
        return false;
    if (number != kVideoInterface)
        return true;
    video_setting_ = static_cast<uint8_t>(setting);
    if (setting == 0) {
        stream_.stop();
    } else {
        stream_.start(controller_.model.iso_packet_bytes[setting - 1]);
    }
    return true;
}

Outcome UsbCamera::control(const Setup& setup, std::span<uint8_t> data)
{
    const Fault fault = fault_ ? fault_(setup, ordinal_) : Fault::none();
    ++ordinal_;
    Outcome outcome = apply_fault(setup, data, fault);
    if (outcome.kind == Outcome::Kind::kRefused)
        return outcome;
    outcome.restart = controller_.restart_pending;
    pass_wire(outcome);
    if (outcome.kind != Outcome::Kind::kPending && outcome.kind != Outcome::Kind::kLate)
        record(setup, data.first(outcome.moved), outcome.status);
    return outcome;
}

// On a clock that runs, the answer is there when the wire has had its time, and the host may queue
// other transfers meanwhile. On one that stands still they come one after the other.
void UsbCamera::pass_wire(Outcome& outcome)
{
    const CameraModel& model = controller_.model;
    if (!clock_.runs()) {
        clock_.advance_us(model.usb_latency_us);
        outcome.due_us += clock_.now_us();
        return;
    }
    const uint64_t now_us = clock_.now_us();
    const uint32_t wire_us = std::min(model.usb_wire_us, model.usb_latency_us);
    wire_free_us_ =
        wire_free_us_ > now_us ? wire_free_us_ + wire_us : now_us + model.usb_latency_us;
    if (outcome.kind == Outcome::Kind::kFinished)
        outcome.kind = Outcome::Kind::kLate;
    outcome.due_us += wire_free_us_;
}

Outcome UsbCamera::apply_fault(const Setup& setup, std::span<uint8_t> data, const Fault& fault)
{
    if (fault.replaces_answer()) {
        if (fault.after)
            (void)answer(setup, data);
        return fail(fault, data);
    }
    Outcome outcome = answer(setup, data);
    spoil_answer(fault, data, outcome);
    if (answer_fault_) {
        const Fault after = answer_fault_();
        if (after.replaces_answer())
            return fail(after, data);
        spoil_answer(after, data, outcome);
    }
    return outcome;
}

Outcome UsbCamera::fail(const Fault& fault, std::span<uint8_t> data)
{
    using Kind = Outcome::Kind;
    switch (fault.kind) {
        case Fault::Kind::kStalled:
            return {.status = -EPIPE};
        case Fault::Kind::kIoError:
            return {.status = -EPROTO};
        case Fault::Kind::kTimeout:
            return {.status = -ETIME};
        case Fault::Kind::kNoAnswer:
            return {Kind::kPending, -EINPROGRESS};
        case Fault::Kind::kAnswer: {
            const size_t moved = std::min(fault.bytes.size(), data.size());
            std::copy_n(fault.bytes.begin(), moved, data.begin());
            return {.moved = static_cast<uint32_t>(moved)};
        }
        case Fault::Kind::kSubmitError:
            return {Kind::kRefused, -static_cast<int>(fault.value)};
        case Fault::Kind::kUnplugSilent:
            return {Kind::kUnplugSilent, -ESHUTDOWN};
        case Fault::Kind::kUnplugAnnounced:
            return {Kind::kUnplugAnnounced, -ESHUTDOWN};
        case Fault::Kind::kNone:
        case Fault::Kind::kShort:
        case Fault::Kind::kLength:
        case Fault::Kind::kLate:
            break;
    }
    return {};
}

void UsbCamera::spoil_answer(const Fault& fault, std::span<uint8_t> data, Outcome& outcome)
{
    const auto room = static_cast<uint32_t>(data.size());
    const bool is_refused = outcome.status != 0;
    if (fault.kind == Fault::Kind::kShort && !is_refused) {
        outcome.moved = std::min(outcome.moved, fault.value);
    } else if (fault.kind == Fault::Kind::kLength && !is_refused) {
        outcome.status = fault.value > room ? -EOVERFLOW : 0;
        std::ranges::fill(data.subspan(outcome.moved), uint8_t{0});
        outcome.moved = std::min(fault.value, room);
    } else if (fault.kind == Fault::Kind::kLate) {
        outcome.kind = Outcome::Kind::kLate;
        outcome.due_us = uint64_t{fault.value} * 1000; // after it has passed the wire
    }
}

Outcome UsbCamera::answer(const Setup& setup, std::span<uint8_t> data)
{
    int moved = kControlStall;
    if (setup.type() == kStandardType) {
        moved = standard_request(setup, data);
    } else if (setup.type() == kClassType && setup.recipient() == kInterfaceRecipient) {
        moved = class_request(setup, data);
    }
    Outcome outcome;
    if (moved < 0) {
        outcome.status = -EPIPE;
    } else {
        outcome.moved = std::min(static_cast<uint32_t>(moved), static_cast<uint32_t>(data.size()));
    }
    return outcome;
}

int UsbCamera::standard_request(const Setup& setup, std::span<uint8_t> data)
{
    if (!data.empty() && setup.is_in() != is_question(setup.request))
        return kControlStall;
    switch (setup.request) {
        case kGetDescriptor:
            return get_descriptor(setup, data);
        case kGetConfiguration:
            return put_answer(std::array{configuration_}, data);
        case kSetConfiguration:
            return configure(setup.value) ? 0 : kControlStall;
        case kGetInterface: {
            const uint8_t setting = setup.index == kVideoInterface ? video_setting_ : uint8_t{0};
            return setup.index >= kInterfaceCount ? kControlStall
                                                  : put_answer(std::array{setting}, data);
        }
        case kSetInterface:
            return set_interface(setup.index, setup.value) ? 0 : kControlStall;
        case kGetStatus: {
            const bool is_halted_one =
                setup.recipient() == kEndpointRecipient && is_halted(setup.index);
            return has_recipient(setup) ? put_answer(std::array<uint8_t, 2>{is_halted_one, 0}, data)
                                        : kControlStall;
        }
        case kClearFeature:
        case kSetFeature:
            return set_feature(setup);
        case kSetAddress:
            return 0;
        default:
            return kControlStall;
    }
}

int UsbCamera::set_feature(const Setup& setup)
{
    if (!has_recipient(setup))
        return kControlStall;
    if (setup.recipient() == kEndpointRecipient && setup.value == kEndpointHalt)
        set_halted(setup.index, setup.request == kSetFeature);
    return 0;
}

// Hosts end a bulk stream by clearing the endpoint's halt, whether it is halted or not.
void UsbCamera::set_halted(uint16_t endpoint, bool halted)
{
    if (endpoint == kVideoEndpoint)
        stream_.stop();
    if (endpoint == kVideoEndpoint || endpoint == kInterruptEndpoint)
        halted_[endpoint == kVideoEndpoint ? 1 : 0] = halted;
}

bool UsbCamera::is_halted(uint16_t endpoint) const
{
    return endpoint == kVideoEndpoint ? halted_[1] || stream_.is_halted()
                                      : endpoint == kInterruptEndpoint && halted_[0];
}

int UsbCamera::get_descriptor(const Setup& setup, std::span<uint8_t> data) const
{
    const uint8_t index = static_cast<uint8_t>(setup.value);
    switch (setup.value >> 8) {
        case kDevice:
            return put_answer(device_descriptor(controller_.model), data);
        case kConfiguration:
            return index == 0 ? put_answer(configuration_descriptor(controller_.model), data)
                              : kControlStall;
        case kString:
            switch (index) {
                case 0:
                    return put_answer(language_descriptor(), data);
                case 1:
                    return put_answer(string_descriptor(controller_.model.usb_manufacturer), data);
                case 2:
                    return put_answer(string_descriptor(product()), data);
                case 3:
                    return put_answer(string_descriptor(usb_serial_), data);
                default:
                    return kControlStall;
            }
        case kDeviceQualifier:
            return put_answer(device_qualifier(device_descriptor(controller_.model)), data);
        default:
            return kControlStall;
    }
}

// What went wrong is kept for the control that tells of it, until another request.
int UsbCamera::class_request(const Setup& setup, std::span<uint8_t> data)
{
    constexpr uint8_t kRequestErrorCode = 2;
    const bool asks_for_error = setup.unit() == 0 && setup.interface() == kControlInterface &&
                                setup.selector() == kRequestErrorCode;
    if (asks_for_error && setup.request == kGetCur)
        return put_answer(std::array{error_code_}, data);
    if (asks_for_error && setup.request == kGetInfo)
        return put_answer(std::array{kInfoGet}, data);
    const int moved = control_request(setup, data);
    error_code_ = moved < 0 ? error_code(setup) : uint8_t{0};
    return moved;
}

// A control tells of itself whether it is there, and can be set.
uint8_t UsbCamera::error_code(const Setup& setup)
{
    enum Code : uint8_t {
        kOutOfRange = 4,
        kInvalidUnit = 5,
        kInvalidControl = 6,
        kInvalidRequest = 7
    };
    constexpr uint8_t kUnits[] = {0, kCameraTerminal, kProcessingUnit, kVendorUnit, kH264Unit};
    uint8_t info = 0;
    if (setup.interface() == kControlInterface && std::ranges::count(kUnits, setup.unit()) == 0)
        return kInvalidUnit;
    const Setup question{.request_type = 0xA1,
                         .request = kGetInfo,
                         .value = setup.value,
                         .index = setup.index,
                         .length = 1};
    if (control_request(question, {&info, 1}) < 0)
        return kInvalidControl;
    return setup.request == kSetCur && (info & kInfoSet) != 0 ? kOutOfRange : kInvalidRequest;
}

int UsbCamera::control_request(const Setup& setup, std::span<uint8_t> data)
{
    if (is_contradictory(setup) || static_cast<uint8_t>(setup.value) != 0)
        return kControlStall;
    if (setup.interface() == kVideoInterface) {
        const int moved = setup.unit() == 0 ? video_.video_interface(setup, data) : kControlStall;
        if (moved >= 0 && VideoControls::is_commit(setup))
            stream_.commit(video_.committed());
        return moved;
    }
    if (setup.interface() != kControlInterface)
        return kControlStall;
    switch (setup.unit()) {
        case kCameraTerminal:
        case kProcessingUnit: {
            const int moved = video_.picture_control(setup, data);
            stream_.set_picture(video_.picture_settings());
            return moved;
        }
        case kVendorUnit:
        case kH264Unit: {
            const int moved =
                controller_.xu_request(setup.unit(), setup.selector(), setup.request, data);
            return moved < 0 ? kControlStall : moved;
        }
        default:
            return kControlStall;
    }
}

} // namespace sim
