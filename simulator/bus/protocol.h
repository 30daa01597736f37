// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <cstdint>
#include <vector>

namespace sim {

/// Largest buffer of one transfer, and so of one message.
inline constexpr uint32_t kMaxUrbBytes = 16u << 20;
inline constexpr uint32_t kMaxIsoPackets = 128;
inline constexpr uint32_t kHighSpeed = 3; ///< as Linux numbers the speeds

/// Requests beside the ioctls. They are never valid ioctl codes of usbfs.
enum : uint32_t { kOpenNode = 1, kCloseNode = 2, kAdvanceClock = 3 };

/// An ioctl on a camera's node without pointers, so that it can cross a process boundary.
struct RequestHeader {
    uint32_t code = 0;   ///< USBDEVFS_... or one of the above
    uint32_t first = 0;  ///< interface, endpoint, configuration, bus, microseconds; SUBMITURB: 1:
                         ///< its completion may come along
    uint32_t second = 0; ///< alternate setting, sub-code, address
    uint8_t urb_type = 0;
    uint8_t urb_endpoint = 0;
    uint16_t iso_packets = 0;
    uint32_t urb_bytes = 0; ///< size of the caller's buffer
    uint32_t payload_bytes = 0;
    uint64_t urb = 0; ///< the caller's address of the URB, a name only
};

/// Payload: SUBMITURB of a control transfer carries setup and OUT data, of an isochronous one the
/// packet lengths (uint32_t each).
struct Request {
    RequestHeader header;
    std::vector<uint8_t> payload;
};

struct ReplyHeader {
    int32_t result = 0; ///< 0 or negative errno
    uint32_t value = 0; ///< capabilities, address
    uint64_t urb = 0;   ///< REAPURB, and SUBMITURB that has completed: whose completion this is
    int32_t status = 0;
    uint32_t actual_bytes = 0;
    uint16_t iso_packets = 0;
    uint16_t completed = 0; ///< SUBMITURB: 1: the completion is here, and counts as reaped
    uint32_t payload_bytes = 0;
};

/// What one isochronous packet came to.
struct IsoResult {
    uint32_t actual_bytes = 0;
    int32_t status = 0;
};

/// Payload: a completion carries the IsoResults and then the IN data; GETDRIVER the driver's name.
struct Reply {
    ReplyHeader header;
    std::vector<uint8_t> payload;

    /// 0 or a negative errno, and nothing else.
    static Reply result(int status) { return {.header = {.result = status}, .payload = {}}; }
    static Reply number(uint32_t value) { return {.header = {.value = value}, .payload = {}}; }
};

/// An opened node: a call in the same process, or a socket. Closing is synchronous.
class Channel {
public:
    virtual ~Channel() = default;
    virtual Reply call(Request&& request) = 0;
    /// Borrowed; writable while a finished URB waits.
    virtual int ready_fd() const = 0;
};

} // namespace sim
