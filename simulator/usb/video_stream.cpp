// SPDX-License-Identifier: Apache-2.0
#include "usb/video_stream.h"

#include <algorithm>
#include <utility>

namespace sim {

namespace {

using std::chrono::steady_clock;

// The sensor needs this long to settle.
constexpr uint32_t kUsualFirstFrameMs = 300;

enum HeaderFlags : uint8_t {
    kFrameId = 0x01,
    kEndOfFrame = 0x02,
    kHasPresentationTime = 0x04,
    kHasSourceClock = 0x08,
    kError = 0x40,
    kEndOfHeader = 0x80,
};

uint32_t microseconds(steady_clock::time_point time)
{
    return static_cast<uint32_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(time.time_since_epoch()).count());
}

// The camera's clock runs at the 30 MHz that its descriptor names.
uint32_t clock_ticks(uint32_t time_us)
{
    return time_us * 30;
}

template <typename Word>
void put(std::span<uint8_t> bytes, size_t at, Word word)
{
    for (size_t i = 0; i < sizeof word; ++i)
        bytes[at + i] = static_cast<uint8_t>(word >> (8 * i));
}

} // namespace

void VideoStream::commit(const StreamFormat& format)
{
    stop();
    format_ = format;
    earliest_ = steady_clock::now();
    if (is_paced()) {
        earliest_ +=
            std::chrono::milliseconds(sensor_.model.first_frame_ms.value_or(kUsualFirstFrameMs));
    }
}

void VideoStream::start(uint32_t packet_bytes)
{
    if (!format_ || state_.streaming)
        return;
    packet_bytes_ = packet_bytes;
    due_ = std::max(earliest_, steady_clock::now());
    film_frame_ = 0;
    state_.streaming = true;
    changed_();
}

bool VideoStream::hurry_first_frame()
{
    const auto now = steady_clock::now();
    const bool is_to_come = state_.streaming && due_ == earliest_ && due_ > now;
    if (!is_to_come || sensor_.model.first_frame_ms)
        return false;
    due_ = now;
    return true;
}

void VideoStream::stop()
{
    const bool was_streaming = std::exchange(state_.streaming, false);
    format_.reset();
    halted_ = false;
    abandon_frame();
    if (was_streaming)
        changed_();
}

void VideoStream::abandon_frame()
{
    picture_.clear();
    picture_at_ = 0;
    payload_bytes_ = 0;
    payload_at_ = 0;
    owes_empty_packet_ = false;
}

void VideoStream::set_pacing(Pacing pacing)
{
    pacing_ = pacing;
}

void VideoStream::set_fault(FrameFaultHook hook)
{
    fault_ = std::move(hook);
    ordinal_ = 0;
}

std::optional<VideoStream::Time> VideoStream::due() const
{
    return state_.streaming ? std::optional(due_) : std::nullopt;
}

// Frames that were due while the machine was busy are not made up for.
void VideoStream::schedule_next()
{
    const auto now = steady_clock::now();
    if (!is_paced() && !halted_) {
        due_ = now;
        return;
    }
    using Ticks = std::chrono::duration<int64_t, std::ratio<1, 10'000'000>>;
    const auto interval =
        std::chrono::duration_cast<steady_clock::duration>(Ticks(format_->interval_100ns));
    due_ += interval;
    if (due_ < now)
        due_ = now + interval;
}

FrameFault::Kind VideoStream::take_frame()
{
    const FrameFault fault = fault_ && !halted_ ? fault_(ordinal_++) : FrameFault::none();
    halted_ = halted_ || fault.kind == FrameFault::Kind::kHalted;
    const uint32_t number = frame_number_++;
    if (!halted_) {
        draw(number);
        send(fault);
    }
    // After drawing, which takes time: a machine too slow for the rate gets fewer frames, and the
    // host its turn in between.
    schedule_next();
    return halted_ ? FrameFault::Kind::kHalted : fault.kind;
}

// A frame that cannot be decoded shows the one before it.
View VideoStream::look_at_scene(uint32_t number)
{
    const std::shared_ptr<const Film>& film = sensor_.model.scene;
    if (!film)
        return {};
    if (film->kind == Film::Kind::kYuyv)
        return {film->width, film->height, film->frame(number)};
    if (std::exchange(scene_place_, film->place_of(number)) != film->place_of(number)) {
        if (auto picture = decode_jpeg(film->frame(number)))
            scene_ = std::move(*picture);
    }
    return {scene_.width, scene_.height, scene_.yuyv};
}

void VideoStream::draw(uint32_t number)
{
    if (format_->film) {
        const auto frame = format_->film->frame(film_frame_++);
        picture_.assign(frame.begin(), frame.end());
        return;
    }
    const FrameSize& size = format_->size;
    const bool is_mjpeg = format_->pixels == PixelFormat::kMjpeg;
    const Film* film = sensor_.model.scene.get();
    if (is_mjpeg && film != nullptr && film->kind == Film::Kind::kJpeg &&
        film->width == size.width && film->height == size.height &&
        film->frame(number).size() <= size.bytes() && settings_ == PictureSettings{} &&
        sensor_.leaves_scenes_alone()) {
        const auto frame = film->frame(number);
        picture_.assign(frame.begin(), frame.end());
        return;
    }
    std::vector<uint8_t>& yuyv = is_mjpeg ? yuyv_ : picture_;
    yuyv.resize(size.bytes());
    sensor_.picture(size.width, size.height, number, yuyv, settings_, look_at_scene(number));
    if (is_mjpeg) {
        picture_ = encode_jpeg(size.width, size.height, yuyv,
                               film != nullptr ? Levels::kFull : Levels::kKept);
    }
}

void VideoStream::send(const FrameFault& fault)
{
    if (fault.kind == FrameFault::Kind::kTruncated)
        picture_.resize(std::clamp<size_t>(fault.bytes, 1, picture_.size()));
    picture_at_ = 0;
    has_error_ = fault.kind == FrameFault::Kind::kErrorBit;
    frame_id_ = !frame_id_;
    taken_at_us_ = microseconds(steady_clock::now());
}

void VideoStream::drop_frame()
{
    schedule_next();
    ++frame_number_;
    ++state_.frames_dropped;
    changed_();
}

void VideoStream::open_payload(size_t most)
{
    const size_t picture_bytes = std::min(most - header_.size(), picture_left());
    const bool is_last = picture_bytes == picture_left();
    const uint32_t now_us = microseconds(steady_clock::now());
    header_[0] = kPayloadHeaderBytes;
    header_[1] = static_cast<uint8_t>(kEndOfHeader | kHasPresentationTime | kHasSourceClock |
                                      (frame_id_ ? kFrameId : 0) | (is_last ? kEndOfFrame : 0) |
                                      (has_error_ ? kError : 0));
    put(header_, 2, clock_ticks(taken_at_us_));
    put(header_, 6, clock_ticks(now_us));
    put(header_, 10, static_cast<uint16_t>(now_us / 1000 & 0x7FF)); // the bus's frame counter
    payload_bytes_ = header_.size() + picture_bytes;
    payload_at_ = 0;
}

size_t VideoStream::read_payload(std::span<uint8_t> room)
{
    size_t moved = 0;
    if (payload_at_ < header_.size()) {
        moved = std::min(room.size(), header_.size() - payload_at_);
        std::copy_n(header_.begin() + static_cast<std::ptrdiff_t>(payload_at_), moved,
                    room.begin());
        payload_at_ += moved;
        room = room.subspan(moved);
    }
    if (payload_at_ >= header_.size()) {
        const size_t bytes = std::min(room.size(), payload_left());
        std::copy_n(picture_.begin() + static_cast<std::ptrdiff_t>(picture_at_), bytes,
                    room.begin());
        payload_at_ += bytes;
        picture_at_ += bytes;
        moved += bytes;
    }
    if (payload_left() == 0)
        finish_payload();
    return moved;
}

void VideoStream::finish_payload()
{
    if (picture_left() == 0) {
        ++state_.frames_sent;
        changed_();
    }
}

// What is left of the frame, with the header of the payload under way and of each that follows.
size_t VideoStream::most_in_transfer() const
{
    const size_t payload = format_->payload_bytes;
    const size_t headers = picture_left() / (payload - kPayloadHeaderBytes) + 2;
    const size_t left = picture_left() + headers * kPayloadHeaderBytes;
    const bool ends_transfer = payload % kBulkPacketBytes != 0; // by its short packet
    return ends_transfer ? std::min(left, payload) : left;
}

// A payload that is neither of the agreed size nor ends in a short packet is followed by an empty
// one; without it the host could not tell where the next payload begins.
size_t VideoStream::read_transfer(std::span<uint8_t> room)
{
    size_t moved = 0;
    while (has_data() && moved < room.size()) {
        if (std::exchange(owes_empty_packet_, false))
            return moved;
        if (payload_left() == 0)
            open_payload(format_->payload_bytes);
        moved += read_payload(room.subspan(moved));
        if (payload_left() == 0 && payload_bytes_ % kBulkPacketBytes != 0)
            return moved;
        owes_empty_packet_ = payload_left() == 0 && payload_bytes_ < format_->payload_bytes;
    }
    return moved;
}

std::optional<size_t> VideoStream::read_packet(std::span<uint8_t> room)
{
    open_payload(most_in_packet());
    if (payload_bytes_ > room.size()) {
        picture_at_ += payload_bytes_ - header_.size();
        payload_at_ = payload_bytes_;
        finish_payload();
        return std::nullopt;
    }
    return read_payload(room);
}

} // namespace sim
