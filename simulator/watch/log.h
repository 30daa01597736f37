// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "chip/clock.h"
#include "watch/output_file.h"
#include "watch/plain_words.h"

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

namespace sim {

/// Counts what repeats itself: a poll that gets the same answer, a walk through the ROM, or several
/// of these in turn. The first of each is told at once, the others as a number when it is over.
class Repetition {
public:
    /// True when the request only goes on with what has been told.
    bool absorbs(const Words& request);
    /// What has been absorbed since; the next request is new.
    std::vector<std::string> summary();
    bool is_counting() const { return counting_; }
    /// The request has been told; others may go on with it.
    void remember(const Words& request);

private:
    struct Run {
        Words first;
        uint32_t end = 0; ///< of the ROM step
        uint64_t more = 0;
    };

    std::deque<Run> runs_;
    bool counting_ = false;
};

/// Lines about all cameras, in the order of what happened. Thread-safe.
class LogFile {
public:
    /// "-": standard error. Times count from now. Throws std::runtime_error.
    LogFile(const std::string& path, Clock& clock);

    void add(const std::string& camera, const std::string& text);
    /// False, and a line on standard error, when lines are missing.
    bool report();

private:
    std::mutex mutex_;
    OutputFile file_;
    Clock& clock_;
    uint64_t start_us_;
};

/// Tells in plain words what one camera is asked, and what becomes of it.
class CameraLog final : public UsbObserver {
public:
    /// `name`: in front of each line; empty when there is one camera only. `counts_repeated`: what
    /// repeats itself is told once, with a number.
    CameraLog(LogFile& file, std::string name, bool counts_repeated);

    void plugged(const UsbCamera& camera, unsigned bus, unsigned address) override;
    void left(Departure reason) override;
    void submitted(const BusTransfer& transfer) override;
    void finished(const BusTransfer& transfer) override;
    void refused(const BusTransfer& transfer) override;
    void video_changed(const VideoStream& stream) override;
    void fault_strikes(const std::string& fault) override;
    /// Nothing more will come.
    void finish();

private:
    void tell(const std::string& text);
    void tell_request(const Words& request);
    Words words(const BusTransfer& transfer);
    void tell_frames(const VideoStream& stream, const char* what);

    LogFile& file_;
    std::string name_;
    bool counts_repeated_;
    Repetition repetition_;
    const UsbCamera* camera_ = nullptr;
    std::map<uint64_t, std::vector<uint8_t>> sent_; ///< data of transfers under way
    bool streaming_ = false;
    uint64_t frames_before_ = 0; ///< of the stream
    uint64_t dropped_before_ = 0;
    uint64_t frames_told_ = 0;
};

} // namespace sim
