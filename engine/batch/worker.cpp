// SPDX-License-Identifier: Apache-2.0
// The helper program of a batch: upgrades one camera. Its standard input is a socket, which brings
// the order and takes events and the report; descriptor 3 holds the images; its argument is the
// folder of the backups.
#include "worker.h"

#include "files/write_all.h"
#include "lines.h"
#include "protocol.h"
#include "report/clock.h"

#include <nyxus/trace.h>
#include <unistd.h>
#include <nyxus/engine.hpp>

#include <csignal>
#include <thread>

namespace nyxus::engine {

namespace {

constexpr int kTalkFd = 0;

/// Tells the leader, as often as anybody wants to know.
class Teller {
public:
    void tell(const Event& event)
    {
        constexpr int64_t kInterval_us = 100'000;
        const int64_t now = now_us();
        if (event.kind == Event::Kind::kAdvances && now - told_us_ < kInterval_us)
            return;
        told_us_ = now;
        (void)files::write_all(kTalkFd, to_line(event)); // the end of the leader is noticed
    }

private:
    int64_t told_us_ = 0;
};

std::vector<uint8_t> read_images(size_t size, size_t offset)
{
    std::vector<uint8_t> bytes(size);
    const ssize_t count = pread(kImagesFd, bytes.data(), size, static_cast<off_t>(offset));
    bytes.resize(count > 0 ? static_cast<size_t>(count) : 0);
    return bytes;
}

Result<ChipImages> images_of(const ImagePart& part, size_t offset)
{
    auto firmware = // as it was checked
        Firmware::from_rom(read_images(part.firmware_bytes, offset));
    if (!firmware)
        return firmware.status();
    ChipImages images{part.chip, {*std::move(firmware)}};
    images.images.reports = part.reports;
    if (part.mfi_bytes == 0)
        return images;
    auto mfi = Mfi::from(read_images(part.mfi_bytes, offset + part.firmware_bytes));
    if (!mfi)
        return mfi.status();
    images.images.mfi = *std::move(mfi);
    if (part.serial.empty())
        return images;
    Status set = images.images.mfi->set_serial(part.serial);
    return set ? Result<ChipImages>(std::move(images)) : set;
}

Result<std::vector<ChipImages>> images_of(const Order& order)
{
    std::vector<ChipImages> all;
    size_t offset = 0;
    for (const ImagePart& part : order.images) {
        auto images = images_of(part, offset);
        if (!images)
            return images.status();
        all.push_back(*std::move(images));
        offset += part.firmware_bytes + part.mfi_bytes;
    }
    return all;
}

Result<Camera> open_camera(const Order& order, const Caller& caller)
{
    const auto cameras = wait_for_cameras(order.port, order.options.plug_wait_s, caller);
    if (!cameras)
        return cameras.status();
    if (cameras->empty())
        return Status(Reason::kCameraGone, "there is no camera at port " + order.port);
    auto camera = Camera::open(cameras->front(), Use::kTransfers);
    if (!camera)
        return camera;
    camera->queue_depth = order.options.queue_depth;
    Status usable = camera->require_rom(order.options.eeprom_bytes);
    return usable ? std::move(camera) : usable;
}

Report failed(Status status)
{
    Report report;
    report.status = std::move(status);
    return report;
}

Report work(const Order& order, const Backups& backups, const Caller& caller)
{
    const auto all = images_of(order);
    if (!all)
        return failed(all.status());
    auto camera = open_camera(order, caller);
    if (!camera)
        return failed(camera.status());
    const auto chosen = choose_images(*all, *camera, order.options.allow_downgrade);
    if (!chosen)
        return failed(chosen.status());
    caller.tell({.kind = Event::Kind::kChosen, .text = (*chosen)->chip});
    const Images& images = (*chosen)->images;
    const UpgradeOptions& options = order.options.upgrade;
    Report report = upgrade(*camera, images, options, backups, caller);
    if (!report.status || !order.options.restart || report.up_to_date)
        return report;
    const auto returned = restart(*std::move(camera), options.wait_s, backups, caller);
    report.version_after = returned ? returned->version() : "";
    report.status = returned ? check_started(*returned, backups) : returned.status();
    if (report.status)
        report.status = check_reports(*returned, images);
    report.stopped = report.status.reason() == Reason::kStopped;
    return report;
}

/// When the leader goes, the camera is completed all the same; but nobody watches any more that it
/// does not hang.
void listen_to(LineReader leader, const std::stop_source& stop)
{
    constexpr unsigned kLongestWork_s = 600;
    while (leader.fd() >= 0) {
        for (const std::string& line : leader.read_lines()) {
            if (is_stop(line))
                stop.request_stop();
        }
    }
    alarm(kLongestWork_s);
}

/// A machine that shuts down does not break an upgrade off.
void stop_on_signals(const std::stop_source& stop)
{
    sigset_t signals;
    sigemptyset(&signals);
    for (const int signal : {SIGTERM, SIGINT, SIGHUP, SIGQUIT})
        sigaddset(&signals, signal);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::thread([signals, stop] {
        int signal = 0;
        sigwait(&signals, &signal);
        stop.request_stop();
    }).detach();
}

} // namespace

int worker_main(int argc, char** argv)
{
    std::signal(SIGPIPE, SIG_IGN);
    std::stop_source stop;
    stop_on_signals(stop);
    LineReader leader(files::Descriptor(dup(kTalkFd)));
    std::optional<Order> order;
    while (!order && leader.fd() >= 0) {
        for (const std::string& line : leader.read_lines()) {
            if (is_stop(line))
                stop.request_stop();
            if (!order)
                order = parse_order(line);
        }
    }
    if (!order || argc != 2) {
        (void)files::write_all(STDERR_FILENO, "this program serves libnyxus-engine\n");
        return 2;
    }
    NyTraceVerbose_level(order->options.trace_level);
    std::thread(listen_to, std::move(leader), stop).detach();
    Teller teller;
    const Caller caller{[&teller](const Event& event) { teller.tell(event); }, stop.get_token()};
    const Report report = work(*order, Backups(argv[1]), caller);
    (void)files::write_all(kTalkFd, to_line(report));
    return 0;
}

} // namespace nyxus::engine
