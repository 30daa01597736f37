// SPDX-License-Identifier: Apache-2.0
#include "watch/log.h"

#include "text/format.h"
#include "text/printable.h"
#include "usb/usb_camera.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace sim {

namespace {

constexpr uint64_t kFramesPerLine = 100;

std::string firmware_in_words(const Controller& controller)
{
    return controller.firmware.external ? "runs the firmware in its ROM"
                                        : "runs its internal firmware";
}

const char* endpoint_kind(TransferType type)
{
    switch (type) {
        case TransferType::kIsochronous:
            return "isochronous";
        case TransferType::kInterrupt:
            return "interrupt";
        default:
            return "bulk";
    }
}

} // namespace

LogFile::LogFile(const std::string& path, Clock& clock)
    : file_(path == "-" ? OutputFile(files::Descriptor(
                                         fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)),
                                     "the terminal")
                        : OutputFile(path)),
      clock_(clock),
      start_us_(clock.now_us())
{
}

void LogFile::add(const std::string& camera, const std::string& text)
{
    const std::lock_guard lock(mutex_);
    const uint64_t us = clock_.now_us() - start_us_;
    file_.write(text::format("%5llu.%06llu  ", static_cast<unsigned long long>(us / kUsPerSecond),
                             static_cast<unsigned long long>(us % kUsPerSecond)) +
                text::printable((camera.empty() ? "" : camera + "  ") + text) + "\n");
}

bool LogFile::report()
{
    const std::lock_guard lock(mutex_);
    return file_.report("log");
}

CameraLog::CameraLog(LogFile& file, std::string name, bool counts_repeated)
    : file_(file), name_(std::move(name)), counts_repeated_(counts_repeated)
{
}

void CameraLog::tell(const std::string& text)
{
    finish();
    file_.add(name_, text);
}

void CameraLog::finish()
{
    for (const std::string& line : repetition_.summary())
        file_.add(name_, line);
}

void CameraLog::tell_request(const Words& request)
{
    if (counts_repeated_ && repetition_.absorbs(request))
        return;
    if (repetition_.is_counting())
        finish();
    file_.add(name_, request.text);
    repetition_.remember(request);
}

void CameraLog::plugged(const UsbCamera& camera, unsigned bus, unsigned address)
{
    camera_ = &camera;
    tell(text::format("plugged in at bus %u, address %u: %s, serial %s, ", bus, address,
                      camera.product().c_str(), camera.serial().c_str()) +
         firmware_in_words(camera.controller()));
}

void CameraLog::left(Departure reason)
{
    switch (reason) {
        case Departure::kUnplugged:
            return tell("unplugged");
        case Departure::kUnpluggedSilently:
            return tell("unplugged; the host has not been told");
        case Departure::kRestart:
            return tell("restarts: leaves the bus and comes back");
    }
}

Words CameraLog::words(const BusTransfer& transfer)
{
    std::vector<uint8_t> sent;
    if (const auto found = sent_.find(transfer.id); found != sent_.end()) {
        sent = std::move(found->second);
        sent_.erase(found);
    }
    if (transfer.type != TransferType::kControl) {
        return {text::format("%s transfer of endpoint 0x%02X", endpoint_kind(transfer.type),
                             transfer.endpoint)};
    }
    const auto data = transfer.is_in() ? transfer.data : std::span<const uint8_t>(sent);
    Words words = request_in_words(camera_->controller().model, transfer.setup, data);
    words.data.assign(data.begin(), data.end());
    return words;
}

void CameraLog::submitted(const BusTransfer& transfer)
{
    if (!transfer.data.empty())
        sent_[transfer.id].assign(transfer.data.begin(), transfer.data.end());
}

// Video that arrives is told of by the frame.
void CameraLog::finished(const BusTransfer& transfer)
{
    const std::string result = result_in_words(transfer);
    if (transfer.type != TransferType::kControl && result.empty())
        return;
    Words request = words(transfer);
    request.text += result;
    if (!result.empty())
        request.step.reset();
    tell_request(request);
}

void CameraLog::refused(const BusTransfer& transfer)
{
    Words request = words(transfer);
    request.text += " -> refused by the host: " + std::string(std::strerror(-transfer.status));
    request.step.reset();
    tell_request(request);
}

void CameraLog::video_changed(const VideoStream& stream)
{
    const StreamState& state = stream.state();
    if (state.streaming != streaming_) {
        streaming_ = state.streaming;
        if (streaming_) {
            frames_before_ = state.frames_sent;
            dropped_before_ = state.frames_dropped;
            frames_told_ = 0;
            const StreamFormat& format = *stream.format();
            constexpr double kUnitsPerSecond = 1e7;
            tell(text::format(
                "video begins: %s %ux%u, %.4g frames per second, payloads of %u bytes",
                std::string(name_of(format.pixels)).c_str(), format.size.width, format.size.height,
                kUnitsPerSecond / format.interval_100ns, format.payload_bytes));
        } else {
            tell_frames(stream, "video ends after");
        }
    } else if (state.frames_sent - frames_before_ >= frames_told_ + kFramesPerLine) {
        frames_told_ += kFramesPerLine;
        tell_frames(stream, "video goes on:");
    }
}

void CameraLog::fault_strikes(const std::string& fault)
{
    tell_request({fault + " strikes"});
}

void CameraLog::tell_frames(const VideoStream& stream, const char* what)
{
    tell(text::format(
        "%s %llu frames, %llu dropped", what,
        static_cast<unsigned long long>(stream.state().frames_sent - frames_before_),
        static_cast<unsigned long long>(stream.state().frames_dropped - dropped_before_)));
}

namespace {

// A page is written, asked for its state and answered; more requests than these make no pattern.
constexpr size_t kLongestPattern = 4;

std::string times_summary(uint64_t more)
{
    return more == 1
               ? "  ... once more: "
               : text::format("  ... %llu more times: ", static_cast<unsigned long long>(more));
}

std::string step_summary(const Words& first, uint64_t more, uint32_t end)
{
    const size_t colon = first.text.find(':');
    constexpr const char* kWhat[] = {"asked for", "read", "written"};
    return text::format(
               "  ... %llu more like it, %s on to 0x%04X: ", static_cast<unsigned long long>(more),
               kWhat[static_cast<size_t>(first.step->kind)], end - 1) +
           first.text.substr(0, colon);
}

} // namespace

bool Repetition::absorbs(const Words& request)
{
    const auto goes_on = [&](const Run& run) {
        if (!request.step || !run.first.step)
            return run.first.text == request.text && run.first.data == request.data;
        return run.first.step->selector == request.step->selector &&
               run.first.step->kind == request.step->kind && run.end == request.step->begin;
    };
    const auto run = std::ranges::find_if(runs_, goes_on);
    if (run == runs_.end())
        return false;
    ++run->more;
    run->end = request.step ? request.step->end : 0;
    counting_ = true;
    return true;
}

std::vector<std::string> Repetition::summary()
{
    std::vector<std::string> lines;
    for (const Run& run : runs_) {
        if (run.more == 0)
            continue;
        lines.push_back(run.first.step ? step_summary(run.first, run.more, run.end)
                                       : times_summary(run.more) + run.first.text);
    }
    runs_.clear();
    counting_ = false;
    return lines;
}

void Repetition::remember(const Words& request)
{
    if (runs_.size() == kLongestPattern)
        runs_.pop_front();
    runs_.push_back({request, request.step ? request.step->end : 0});
}

} // namespace sim
