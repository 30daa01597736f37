// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <utility>
#include <vector>

namespace sim {

inline constexpr size_t kSetupBytes = 8;

/// The setup stage of a control transfer, in host byte order.
struct Setup {
    uint8_t request_type = 0;
    uint8_t request = 0;
    uint16_t value = 0;
    uint16_t index = 0;
    uint16_t length = 0;

    bool is_in() const { return (request_type & 0x80) != 0; }
    uint8_t type() const { return (request_type >> 5) & 3; }
    uint8_t recipient() const { return request_type & 0x1F; }
    uint8_t interface() const { return static_cast<uint8_t>(index); }
    uint8_t unit() const { return static_cast<uint8_t>(index >> 8); }
    uint8_t selector() const { return static_cast<uint8_t>(value >> 8); }

    static Setup from_wire(std::span<const uint8_t, kSetupBytes> bytes);
    std::array<uint8_t, kSetupBytes> to_wire() const;
    bool operator==(const Setup&) const = default;
};

/// One finished control transfer: what was asked, the bytes that moved, and 0 or a negative errno.
struct Transfer {
    std::array<uint8_t, kSetupBytes> setup{};
    std::vector<uint8_t> data;
    int status = 0;

    bool operator==(const Transfer&) const = default;
};

/// What goes wrong with a control transfer. The camera sees the request only for kNone, kShort,
/// kLength and kLate, and for what strikes `after` it has been obeyed.
struct Fault {
    enum class Kind {
        kNone,
        kStalled,  ///< answered with STALL
        kIoError,  ///< garbage on the wire (EPROTO)
        kTimeout,  ///< the host controller gives up (ETIME)
        kNoAnswer, ///< stays pending until it is cancelled or the camera unplugged
        kShort,    ///< `value` bytes at most move; what is set has been obeyed as a whole
        kLength,   ///< `value` bytes come, cut or filled up with 0; too many for the host: babble
        kLate,     ///< the answer comes after `value` milliseconds
        kAnswer,   ///< `bytes` come back instead of what the camera would say
        kSubmitError,     ///< the host refuses it with errno `value`
        kUnplugSilent,    ///< the camera goes; nobody has been told yet
        kUnplugAnnounced, ///< the camera goes, and the event is sent
    };
    Kind kind = Kind::kNone;
    uint32_t value = 0;
    std::vector<uint8_t> bytes = {};
    bool after = false; ///< the camera has done what it was asked, only its answer is lost

    /// The firmware's own answer, if there is one, never reaches the host.
    bool replaces_answer() const
    {
        return kind != Kind::kNone && kind != Kind::kShort && kind != Kind::kLength &&
               kind != Kind::kLate;
    }

    static Fault none() { return {}; }
    static Fault stall() { return {Kind::kStalled, 0, {}}; }
    static Fault io_error() { return {Kind::kIoError, 0, {}}; }
    static Fault timeout() { return {Kind::kTimeout, 0, {}}; }
    static Fault no_answer() { return {Kind::kNoAnswer, 0, {}}; }
    static Fault short_answer(uint32_t bytes) { return {Kind::kShort, bytes, {}}; }
    static Fault wrong_length(uint32_t bytes) { return {Kind::kLength, bytes, {}}; }
    static Fault late(uint32_t milliseconds) { return {Kind::kLate, milliseconds, {}}; }
    static Fault answer(std::vector<uint8_t> bytes) { return {Kind::kAnswer, 0, std::move(bytes)}; }
    static Fault submit_error(uint32_t error) { return {Kind::kSubmitError, error, {}}; }
    static Fault unplug_silent() { return {Kind::kUnplugSilent, 0, {}}; }
    static Fault unplug_announced() { return {Kind::kUnplugAnnounced, 0, {}}; }
};

/// Asked before each control transfer; `ordinal` counts them from 0 since the hook was set. It runs
/// under the camera's lock: it may look at the camera, but must not call the bed.
using FaultHook = std::function<Fault(const Setup& setup, uint64_t ordinal)>;

/// Asked once the firmware has served a request: what goes wrong with its answer. Any fault, under
/// the same conditions.
using AnswerFaultHook = std::function<Fault()>;

} // namespace sim
