// SPDX-License-Identifier: Apache-2.0
#include "bare_camera.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <deque>
#include <utility>

#include "paired.h"

namespace bench {

namespace {

constexpr uint8_t kToCamera = 0x21;
constexpr uint8_t kFromCamera = 0xA1;
constexpr uint16_t kUnit = 6 << 8;
constexpr uint8_t kExternalRom = 0x03;
constexpr uint8_t kWriteProtect = 0x0E;
constexpr uint8_t kSpiStatus = 0x12;
constexpr size_t kHeader = 3; ///< flags and length, address
constexpr size_t kMostFrame = kHeader + 32;

uint8_t request_of(uint8_t type)
{
    return type == kFromCamera ? 0x81 : 0x01;
}

/// A dump whose requests and answers are queued.
class QueuedRead {
public:
    QueuedRead(libusb_device_handle* handle, uint8_t chunk, std::span<uint8_t> out)
        : handle_(handle), chunk_(chunk), out_(out)
    {
    }

    void run(libusb_context* context, unsigned depth)
    {
        for (unsigned i = 0; i < depth && queued_ < out_.size(); ++i)
            submit(pairs_.emplace_back(*this));
        while (done_ < out_.size() && !failed_)
            must(libusb_handle_events(context) == 0, "libusb_handle_events");
        must(!failed_, "a queued transfer");
    }

private:
    struct Pair {
        explicit Pair(QueuedRead& its_read) : read(its_read) {}
        ~Pair()
        {
            libusb_free_transfer(request);
            libusb_free_transfer(answer);
        }
        QueuedRead& read;
        libusb_transfer* request = libusb_alloc_transfer(0);
        libusb_transfer* answer = libusb_alloc_transfer(0);
        std::array<uint8_t, LIBUSB_CONTROL_SETUP_SIZE + kMostFrame> sent = {};
        std::array<uint8_t, LIBUSB_CONTROL_SETUP_SIZE + kMostFrame> received = {};
        size_t at = 0;
    };

    void submit(Pair& pair)
    {
        pair.at = std::exchange(queued_, queued_ + chunk_);
        const uint8_t header[] = {chunk_, uint8_t(pair.at >> 8), uint8_t(pair.at)};
        std::ranges::copy(header, pair.sent.begin() + LIBUSB_CONTROL_SETUP_SIZE);
        submit(pair, pair.request, pair.sent.data(), kToCamera);
        submit(pair, pair.answer, pair.received.data(), kFromCamera);
    }

    void submit(Pair& pair, libusb_transfer* transfer, uint8_t* buffer, uint8_t type)
    {
        libusb_fill_control_setup(buffer, type, request_of(type), kExternalRom << 8, kUnit,
                                  uint16_t(kHeader + chunk_));
        libusb_fill_control_transfer(transfer, handle_, buffer, finish, &pair, 0);
        failed_ = libusb_submit_transfer(transfer) != 0 || failed_;
    }

    static void LIBUSB_CALL finish(libusb_transfer* transfer)
    {
        Pair& pair = *static_cast<Pair*>(transfer->user_data);
        QueuedRead& read = pair.read;
        const auto size = static_cast<int>(kHeader + read.chunk_);
        if (transfer->status != LIBUSB_TRANSFER_COMPLETED || transfer->actual_length != size)
            read.failed_ = true;
        if (transfer == pair.request || read.failed_)
            return;
        std::copy_n(pair.received.begin() + LIBUSB_CONTROL_SETUP_SIZE + kHeader, read.chunk_,
                    read.out_.begin() + static_cast<std::ptrdiff_t>(pair.at));
        read.done_ += read.chunk_;
        if (read.queued_ < read.out_.size())
            read.submit(pair);
    }

    libusb_device_handle* handle_;
    uint8_t chunk_;
    std::span<uint8_t> out_;
    std::deque<Pair> pairs_;
    size_t queued_ = 0;
    size_t done_ = 0;
    bool failed_ = false;
};

} // namespace

void BareCamera::transfer(uint8_t type, uint8_t selector, std::span<uint8_t> data)
{
    must(libusb_control_transfer(handle_, type, request_of(type), uint16_t(selector << 8), kUnit,
                                 data.data(), uint16_t(data.size()), 0) == int(data.size()),
         "libusb_control_transfer");
}

void BareCamera::read(std::span<uint8_t> out, unsigned depth)
{
    must(out.size() % chunk_ == 0, "a size of whole chunks");
    if (depth > 1) {
        QueuedRead(handle_, chunk_, out).run(context_, depth);
        return;
    }
    std::array<uint8_t, kMostFrame> buffer = {};
    const auto frame = std::span(buffer).first(kHeader + chunk_);
    for (size_t at = 0; at < out.size(); at += chunk_) {
        std::ranges::fill(frame, uint8_t(0));
        frame[0] = chunk_;
        frame[1] = uint8_t(at >> 8);
        frame[2] = uint8_t(at);
        transfer(kToCamera, kExternalRom, frame);
        transfer(kFromCamera, kExternalRom, frame);
        std::ranges::copy(frame.subspan(kHeader), out.begin() + static_cast<std::ptrdiff_t>(at));
    }
}

void BareCamera::wait_while_busy()
{
    constexpr useconds_t kPause_us = 2000;
    for (;; usleep(kPause_us)) {
        std::array<uint8_t, 11> frame = {};
        transfer(kToCamera, kSpiStatus, frame);
        transfer(kFromCamera, kSpiStatus, frame);
        if ((frame[kHeader] & 1) == 0)
            return;
    }
}

void BareCamera::protect(bool on)
{
    std::array<uint8_t, 1> state = {uint8_t(on ? 1 : 0)};
    std::array<uint8_t, 11> status = {0x80, 0, 0, uint8_t(on ? 0x8C : 0)};
    if (!on)
        transfer(kToCamera, kWriteProtect, state);
    transfer(kToCamera, kSpiStatus, status);
    if (on)
        transfer(kToCamera, kWriteProtect, state);
    wait_while_busy();
}

void BareCamera::write(uint32_t address, std::span<const uint8_t> bytes)
{
    for (size_t at = 0; at < bytes.size(); at += chunk_) {
        const auto chunk = bytes.subspan(at, std::min<size_t>(chunk_, bytes.size() - at));
        const size_t to = address + at;
        std::array<uint8_t, kMostFrame> frame = {uint8_t(0x80 | chunk.size()), uint8_t(to >> 8),
                                                 uint8_t(to)};
        std::ranges::copy(chunk, frame.begin() + kHeader);
        wait_while_busy();
        transfer(kToCamera, kExternalRom, std::span(frame).first(kHeader + chunk_));
    }
}

void BareCamera::program(std::span<const uint8_t> image)
{
    constexpr size_t kImageHeader = 0x40;
    protect(false);
    std::array<uint8_t, kMostFrame> erase = {0x40};
    transfer(kToCamera, kExternalRom, std::span(erase).first(kHeader + chunk_));
    wait_while_busy();
    write(kImageHeader, image.subspan(kImageHeader));
    write(0, image.first(kImageHeader));
    protect(true);
}

} // namespace bench
