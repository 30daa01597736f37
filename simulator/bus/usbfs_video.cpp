// SPDX-License-Identifier: Apache-2.0
// The part of a node that carries frames: from the camera's video pipe into the URBs of whoever
// holds the video interface.
#include "bus/usbfs.h"

#include <linux/usbdevice_fs.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <functional>
#include <numeric>
#include <thread>
#include <utility>

namespace sim {

namespace {

// What a host leaves unread is bounded, as by the kernel's own limit.
constexpr size_t kMaxFinishedBytes = 16u << 20;

} // namespace

bool UsbfsNode::has_room_for_frame() const
{
    const UsbfsFile* host = owners_[kVideoInterface];
    return host != nullptr && !camera_->stream().has_data() && host->has_room_for_frame();
}

// A host that sleeps now and then gets its frames then, and only then.
constexpr auto kHostIsAwake = std::chrono::milliseconds(50);

std::optional<uint64_t> UsbfsNode::fast_frame_due_us()
{
    constexpr uint32_t kUsualFirstFrameMs = 300;
    const std::lock_guard lock(camera_->mutex());
    if (!video_is_fast_ || gone_ || !camera_->stream().state().streaming) {
        next_frame_us_.reset();
    } else if (!next_frame_us_) {
        const auto first_ms = camera_->controller().model.first_frame_ms;
        next_frame_us_ =
            camera_->clock().now_us() + uint64_t{first_ms.value_or(kUsualFirstFrameMs)} * 1000;
        host_slept_ = std::chrono::steady_clock::now();
    }
    return next_frame_us_;
}

bool UsbfsNode::has_taken_all() const
{
    const UsbfsFile* host = owners_[kVideoInterface];
    return host != nullptr && host->finished_.empty() && has_room_for_frame();
}

// Who has not taken a frame in all that time is not waited for until it takes one.
void UsbfsNode::bring_fast_frame()
{
    constexpr int kMostGlances = 5000;
    constexpr auto kGlance = std::chrono::microseconds(200);
    std::unique_lock lock(camera_->mutex());
    const int most = host_is_slow_ ? 1 : kMostGlances;
    for (int glance = 0; glance < most && !gone_ && !has_taken_all(); ++glance) {
        host_slept_ = std::chrono::steady_clock::now();
        lock.unlock();
        std::this_thread::sleep_for(kGlance);
        lock.lock();
    }
    host_is_slow_ = !has_taken_all();
    if (fast_frame_due_us())
        carry_frame();
    host_slept_ = std::chrono::steady_clock::now();
}

std::optional<FramePump::Time> UsbfsNode::frame_due()
{
    const VideoStream& stream = camera_->stream();
    if (fast_frame_due_us())
        return has_room_for_frame() ? std::optional(host_slept_ + kHostIsAwake) : std::nullopt;
    if (gone_ || (!stream.is_paced() && !has_room_for_frame()))
        return std::nullopt;
    return stream.due();
}

void UsbfsNode::carry_frame()
{
    VideoStream& stream = camera_->stream();
    if (const std::optional<uint64_t> due_us = fast_frame_due_us()) {
        constexpr uint32_t kPerUs = 10;
        const uint64_t now_us = camera_->clock().now_us();
        camera_->clock().advance_us(*due_us > now_us ? *due_us - now_us : 0);
        next_frame_us_ = *due_us + stream.format()->interval_100ns / kPerUs;
    }
    if (!has_room_for_frame()) {
        stream.drop_frame();
        return;
    }
    switch (stream.take_frame()) {
        case FrameFault::Kind::kHalted:
            owners_[kVideoInterface]->stall_video();
            break;
        case FrameFault::Kind::kUnplugSilent:
            set_gone();
            on_event_(BusEvent::kUnplugSilent);
            break;
        case FrameFault::Kind::kUnplugAnnounced:
            set_gone();
            on_event_(BusEvent::kUnplugAnnounced);
            break;
        case FrameFault::Kind::kNone:
        case FrameFault::Kind::kTruncated:
        case FrameFault::Kind::kErrorBit:
            owners_[kVideoInterface]->move_video();
            break;
    }
}

std::list<UsbfsFile::Urb>::iterator UsbfsFile::first_video_urb()
{
    return std::ranges::find(pending_, kVideoEndpoint, &Urb::endpoint);
}

bool UsbfsFile::has_room_for_frame() const
{
    return finished_bytes_ < kMaxFinishedBytes &&
           std::ranges::find(pending_, kVideoEndpoint, &Urb::endpoint) != pending_.end();
}

int UsbfsFile::submit_video(Urb&& urb, std::span<const uint32_t> packet_bytes)
{
    const bool isochronous = camera_.controller().model.streams_isochronously;
    if (isochronous && camera_.video_setting() == 0)
        return -ENOENT; // setting 0 has no endpoint
    const int type = isochronous ? USBDEVFS_URB_TYPE_ISO : USBDEVFS_URB_TYPE_BULK;
    const uint64_t total = std::accumulate(packet_bytes.begin(), packet_bytes.end(), uint64_t{0});
    if (urb.type != type || total > urb.buffer_bytes || packet_bytes.empty() == isochronous)
        return -EINVAL;
    urb.packet_bytes.assign(packet_bytes.begin(), packet_bytes.end());
    urb.packets.resize(packet_bytes.size());
    tell(&UsbObserver::submitted, urb);
    pending_.push_back(std::move(urb));
    if (!isochronous)
        camera_.stream().start();
    meet_first_frame(pending_.back().buffer_bytes);
    move_video();
    node_->pump_.wake();
    return 0;
}

// A transfer that ends while its program queues others loses its memory to one of these, and cannot
// be queued again. Linux is as slow as that in every other run; here the first frame always comes
// while the transfer is queued that takes the last of the memory.
void UsbfsFile::meet_first_frame(uint32_t queued_bytes)
{
    constexpr uint32_t kTimeForFrame_us = 20'000;
    if (node_->memory_->is_used_up_for(queued_bytes) && camera_.stream().hurry_first_frame())
        camera_.clock().advance_us(kTimeForFrame_us);
}

void UsbfsFile::move_video()
{
    VideoStream& stream = camera_.stream();
    while (stream.has_data()) {
        const auto urb = first_video_urb();
        if (urb == pending_.end())
            return;
        if (urb->packets.empty()) {
            fill_transfer(*urb);
        } else {
            fill_packets(*urb);
        }
        finish(std::move(*urb));
        pending_.erase(urb);
    }
}

void UsbfsFile::fill_transfer(Urb& urb)
{
    VideoStream& stream = camera_.stream();
    // What is asked for costs nothing, or a host could have all memory by asking.
    urb.data.resize(std::min<size_t>(urb.buffer_bytes, stream.most_in_transfer()));
    urb.actual_bytes = static_cast<uint32_t>(stream.read_transfer(urb.data));
    urb.data.resize(urb.actual_bytes);
    // A whole packet came where there was room for a part of it only.
    const bool babbled = stream.is_inside_payload() && urb.buffer_bytes % kBulkPacketBytes != 0;
    urb.status = babbled ? -EOVERFLOW : 0;
}

// A frame's last URB ends early: its other packets came back empty.
void UsbfsFile::fill_packets(Urb& urb)
{
    VideoStream& stream = camera_.stream();
    std::vector<uint8_t>& data = urb.data;
    const auto room = [most = stream.most_in_packet()](uint32_t packet_bytes) {
        return std::min<size_t>(packet_bytes, most);
    };
    data.resize(std::transform_reduce(urb.packet_bytes.begin(), urb.packet_bytes.end(), size_t{0},
                                      std::plus<>(), room));
    size_t filled = 0;
    for (size_t i = 0; i < urb.packets.size() && stream.has_data(); ++i) {
        const auto moved =
            stream.read_packet(std::span(data).subspan(filled, room(urb.packet_bytes[i])));
        urb.packets[i] = {static_cast<uint32_t>(moved.value_or(0)), moved ? 0 : -EOVERFLOW};
        filled += urb.packets[i].actual_bytes;
    }
    data.resize(filled);
    urb.actual_bytes = static_cast<uint32_t>(filled);
    urb.status = 0;
}

// The transfer under way fails; the next one will when its time comes.
void UsbfsFile::stall_video()
{
    if (const auto urb = first_video_urb(); urb != pending_.end())
        cancel(urb, -EPIPE);
}

} // namespace sim
