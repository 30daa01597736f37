// SPDX-License-Identifier: Apache-2.0
#include "queue.h"

#include <nyxus/extensions.h>
#include <deque>
#include <memory>

#include "frame.h"

namespace nyxus::engine {

namespace {

constexpr size_t kProof = 1024; ///< bytes that are read both ways before the queue is trusted

std::span<uint8_t> piece_at(std::span<uint8_t> out, size_t offset, Width width)
{
    return out.subspan(offset, std::min(static_cast<size_t>(width), out.size() - offset));
}

/// libusb's code for what has become of a transfer, or the bytes that it has moved.
int outcome_of(const libusb_transfer& transfer)
{
    switch (transfer.status) {
        case LIBUSB_TRANSFER_COMPLETED:
            return transfer.actual_length;
        case LIBUSB_TRANSFER_TIMED_OUT:
            return LIBUSB_ERROR_TIMEOUT;
        case LIBUSB_TRANSFER_STALL:
            return LIBUSB_ERROR_PIPE;
        case LIBUSB_TRANSFER_NO_DEVICE:
            return LIBUSB_ERROR_NO_DEVICE;
        case LIBUSB_TRANSFER_OVERFLOW:
            return LIBUSB_ERROR_OVERFLOW;
        case LIBUSB_TRANSFER_ERROR:
        case LIBUSB_TRANSFER_CANCELLED:
            break;
    }
    return LIBUSB_ERROR_IO;
}

/// One half of an exchange, and of others after it. It waits for the end of its transfer before it
/// dies.
class Half {
public:
    Half(NyDevice& device, uint8_t request)
        : device_(device),
          request_(request),
          transfer_(libusb_alloc_transfer(0), libusb_free_transfer)
    {
    }
    ~Half()
    {
        if (is_under_way_)
            libusb_cancel_transfer(transfer_.get());
        wait();
    }
    Half(const Half&) = delete;
    Half& operator=(const Half&) = delete;

    void submit(const Frame& frame)
    {
        fill_buffer(frame);
        if (!transfer_) {
            outcome_ = LIBUSB_ERROR_NO_MEM;
            return;
        }
        libusb_fill_control_transfer(transfer_.get(), device_.usb_handle, buffer_.data(), finish,
                                     this, 0);
        outcome_ = claim_for_transfer(device_);
        if (outcome_ >= 0)
            outcome_ = libusb_submit_transfer(transfer_.get());
        is_under_way_ = outcome_ >= 0;
        ended_ = is_under_way_ ? 0 : 1;
    }

    /// The bytes that have moved, or libusb's code.
    int wait()
    {
        while (is_under_way_ && ended_ == 0)
            handle_events();
        is_under_way_ = false;
        return note_outcome(device_, outcome_);
    }

    std::span<const uint8_t> data() const
    {
        return std::span(buffer_).subspan(LIBUSB_CONTROL_SETUP_SIZE);
    }

private:
    void fill_buffer(const Frame& frame)
    {
        const VendorSetup setup = vendor_setup(request_, frame.selector);
        buffer_.resize(LIBUSB_CONTROL_SETUP_SIZE + frame.request.size());
        libusb_fill_control_setup(buffer_.data(), setup.type, request_, setup.value, setup.index,
                                  static_cast<uint16_t>(frame.request.size()));
        if (request_ == UVC_SET_CUR)
            std::ranges::copy(frame.request, buffer_.begin() + LIBUSB_CONTROL_SETUP_SIZE);
    }

    static void LIBUSB_CALL finish(libusb_transfer* transfer)
    {
        auto* half = static_cast<Half*>(transfer->user_data);
        half->outcome_ = outcome_of(*transfer);
        half->ended_ = 1;
    }

    void handle_events()
    {
        const int status = libusb_handle_events_completed(nyxus_usb_context(&device_), &ended_);
        if (status < 0 && status != LIBUSB_ERROR_INTERRUPTED)
            libusb_cancel_transfer(transfer_.get()); // as libusb's own waiting does
    }

    NyDevice& device_;
    uint8_t request_;
    std::vector<uint8_t> buffer_;
    std::unique_ptr<libusb_transfer, decltype(&libusb_free_transfer)> transfer_;
    bool is_under_way_ = false;
    int ended_ = 0;
    int outcome_ = 0;
};

struct Exchange {
    explicit Exchange(NyDevice& device) : request(device, UVC_SET_CUR), answer(device, UVC_GET_CUR)
    {
    }
    void submit(Frame&& next)
    {
        frame = std::move(next);
        request.submit(frame);
        answer.submit(frame);
    }

    Frame frame = {};
    Half request;
    Half answer;
};

/// In their order. What is dropped is cancelled from its end, so that none follows a failure.
struct Exchanges : std::deque<std::unique_ptr<Exchange>> {
    ~Exchanges()
    {
        while (!empty())
            pop_back();
    }
};

Status finish(const Reading& reading, Exchange& exchange)
{
    const Frame& frame = exchange.frame;
    Status sent = check_request(reading, frame, exchange.request.wait());
    const int moved = exchange.answer.wait();
    return sent ? take_answer(reading, frame, exchange.answer.data(), moved) : sent;
}

/// Reads inside the selected block as exchange() does, but keeps several requests and answers under
/// way: the host controller sends them in order, without waiting for the program in between. `done`
/// counts the bytes before the first exchange that has failed; of what comes after it nothing is
/// used, and nothing is tried again.
Status read_queued(const Reading& reading, Width width, uint32_t address, std::span<uint8_t> out,
                   size_t& done)
{
    Exchanges under_way;
    std::unique_ptr<Exchange> spare;
    size_t queued = 0;
    for (done = 0; done < out.size();) {
        while (queued < out.size() && under_way.size() < reading.camera.queue_depth) {
            auto frame = make_frame(reading, width, address + static_cast<uint32_t>(queued),
                                    piece_at(out, queued, width));
            if (!frame)
                return frame.status();
            queued += frame->out.size();
            if (!spare)
                spare = std::make_unique<Exchange>(*reading.camera.device());
            under_way.push_back(std::move(spare));
            under_way.back()->submit(*std::move(frame));
        }
        if (Status read = finish(reading, *under_way.front()); !read)
            return read;
        done += under_way.front()->frame.out.size();
        spare = std::move(under_way.front());
        under_way.pop_front();
    }
    return {};
}

Status read_one_by_one(const Reading& reading, Width width, uint32_t address,
                       std::span<uint8_t> out)
{
    for (size_t done = 0; done < out.size();) {
        const std::span<uint8_t> piece = piece_at(out, done, width);
        if (Status read = exchange(reading, width, address + static_cast<uint32_t>(done), piece);
            !read)
            return read;
        done += piece.size();
    }
    return {};
}

/// Whether queued exchanges read what those one by one have read.
Status prove(const Reading& reading, Width width, uint32_t address, std::span<const uint8_t> bytes)
{
    std::vector<uint8_t> again(bytes.size());
    size_t done = 0;
    Status read = read_queued(reading, width, address, again, done);
    if (!read || std::ranges::equal(bytes, again))
        return read;
    return {Reason::kUnreliableReads,
            reading_failed(reading.phase, address) + ": queued requests read something else"};
}

} // namespace

Status read_inside_block(const Reading& reading, Width width, uint32_t address,
                         std::span<uint8_t> out)
{
    Camera& camera = reading.camera;
    bool& is_proven = width == Width::k512 ? camera.wide_queue_proven : camera.narrow_queue_proven;
    const bool can_queue = camera.queue_depth > 1 && nyxus_usb_context(camera.device()) != nullptr;
    if (!can_queue || (!is_proven && out.size() < kProof))
        return read_one_by_one(reading, width, address, out);
    size_t done = 0;
    Status queued;
    if (is_proven) {
        queued = read_queued(reading, width, address, out, done);
    } else {
        if (Status read = read_one_by_one(reading, width, address, out.first(kProof)); !read)
            return read;
        queued = prove(reading, width, address, out.first(kProof));
        is_proven = bool(queued);
        done = kProof;
    }
    if (queued.reason() == Reason::kCameraGone)
        return queued;
    if (!queued) {
        camera.queue_depth = 1;
        tell_read_again(reading, queued);
    }
    return done == out.size()
               ? Status()
               : read_inside_block(reading, width, address + static_cast<uint32_t>(done),
                                   out.subspan(done));
}

} // namespace nyxus::engine
