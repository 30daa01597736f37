// SPDX-License-Identifier: Apache-2.0
// Video. A frame is copied once, out of the library's queue into memory of its own, which is used
// again as soon as nobody refers to the frame.
#include "camera.h"

#include <pybind11/stl.h>

#include <cmath>
#include <cstring>

namespace nyxus::python {

namespace {

constexpr double kSecond_100ns = 10'000'000;

/// Memory of frames that nobody refers to any more.
class FrameMemory {
public:
    using Block = std::vector<uint8_t>;

    Block take()
    {
        const std::lock_guard lock(mutex_);
        if (free_.empty())
            return {};
        Block block = std::move(free_.back());
        free_.pop_back();
        return block;
    }

    void give_back(Block block)
    {
        constexpr size_t kMostFree = 4;
        const std::lock_guard lock(mutex_);
        if (free_.size() < kMostFree)
            free_.push_back(std::move(block));
    }

private:
    std::mutex mutex_;
    std::vector<Block> free_;
};

/// A frame, which owns its bytes.
class OwnFrame {
public:
    OwnFrame(const NyStreamFrame& frame, std::shared_ptr<FrameMemory> memory)
        : fourcc(frame.fourcc),
          width(frame.width),
          height(frame.height),
          sequence(frame.sequence),
          time_us(frame.time_us),
          bytes(memory->take()),
          memory_(std::move(memory))
    {
        bytes.resize(frame.size);
        std::memcpy(bytes.data(), frame.data, frame.size);
    }
    ~OwnFrame() { memory_->give_back(std::move(bytes)); }
    OwnFrame(const OwnFrame&) = delete;
    OwnFrame& operator=(const OwnFrame&) = delete;

    /// YUYV: rows of pixels of two bytes; anything else: its bytes.
    py::buffer_info buffer()
    {
        if (fourcc == NYXUS_FOURCC_YUYV && bytes.size() == size_t{height} * width * 2)
            return {bytes.data(), {height, width, 2U}, {width * 2, 2U, 1U}};
        return {bytes.data(), static_cast<py::ssize_t>(bytes.size())};
    }

    const uint32_t fourcc;
    const uint32_t width;
    const uint32_t height;
    const uint32_t sequence;
    const uint64_t time_us;
    FrameMemory::Block bytes;

private:
    std::shared_ptr<FrameMemory> memory_;
};

struct Format {
    std::string format;
    uint32_t width;
    uint32_t height;
    std::vector<double> rates;
};

struct StreamStatus {
    double rate;
    uint32_t payload_bytes;
    uint64_t frames;
    uint64_t incomplete;
    uint64_t late;
};

class OwnStream {
public:
    OwnStream(SharedCamera camera, const NyStreamRequest& request) : camera_(std::move(camera))
    {
        camera_->call([&](engine::Camera& used) {
            return Status::of_video(
                nyxus_stream_start(used.device(), &request, nullptr, nullptr, &stream_));
        });
    }
    ~OwnStream() { camera_->leave(stream_); }
    OwnStream(const OwnStream&) = delete;
    OwnStream& operator=(const OwnStream&) = delete;

    std::unique_ptr<OwnFrame> next(double timeout_s)
    {
        constexpr std::chrono::milliseconds kSignals{50};
        const std::unique_lock turn(mutex_, std::try_to_lock);
        if (!turn)
            raise_busy("another thread waits for this stream's frames");
        const auto end = deadline_after(timeout_s);
        for (;;) {
            const auto left = std::max(end - Clock::now(), Clock::duration::zero());
            const bool is_last = left <= kSignals;
            std::unique_ptr<OwnFrame> frame;
            Status status = wait(is_last ? left : kSignals, frame);
            if (status)
                return frame;
            if (status.code() != UVC_ERROR_TIMEOUT || is_last)
                raise(error_of(status));
            if (PyErr_CheckSignals() != 0)
                throw py::error_already_set();
        }
    }

    std::unique_ptr<OwnFrame> iterate()
    {
        if (is_stopped_)
            throw py::stop_iteration();
        return next(kPatience_s);
    }

    StreamStatus status() const
    {
        NyStreamStatus status = {};
        (void)nyxus_stream_status(stream_, &status);
        return {kSecond_100ns / std::max(status.interval, 1U), status.payload_bytes, status.frames,
                status.incomplete, status.late};
    }

    void stop()
    {
        if (is_stopped_)
            return;
        is_stopped_ = true;
        if (!camera_->is_closed()) // closing has stopped it
            camera_->ask([this](engine::Camera&) { return nyxus_stream_stop(stream_), true; });
    }

    static constexpr double kPatience_s = 5;

private:
    /// Without the interpreter's lock.
    Status wait(Clock::duration time, std::unique_ptr<OwnFrame>& frame)
    {
        const auto ms = std::chrono::ceil<std::chrono::milliseconds>(time).count();
        const WithoutLock unlocked;
        NyStreamFrame taken = {};
        const int32_t rv = nyxus_stream_next(stream_, static_cast<uint32_t>(ms), &taken);
        if (rv < 0)
            return Status::of_video(rv);
        frame = std::make_unique<OwnFrame>(taken, memory_);
        return {};
    }

    SharedCamera camera_;
    NyStream* stream_ = nullptr;
    std::shared_ptr<FrameMemory> memory_ = std::make_shared<FrameMemory>();
    std::mutex mutex_;
    bool is_stopped_ = false;
};

uint32_t fourcc_of(const std::string& format)
{
    if (format.size() != 4)
        raise_out_of_range("a format has four characters");
    const auto at = [&](size_t i) { return static_cast<uint8_t>(format[i]); };
    return NYXUS_FOURCC(at(0), at(1), at(2), at(3));
}

NyStreamRequest request_of(int64_t width, int64_t height, double fps, const std::string& format)
{
    constexpr int64_t kMost = UINT32_MAX;
    if (!(fps >= 0))
        raise_out_of_range("the rate is positive, or 0 for the first one that the camera offers");
    const double interval = fps > 0 ? std::round(kSecond_100ns / fps) : 0;
    return {fourcc_of(format), in_range<uint32_t>(width, 1, kMost, "the width"),
            in_range<uint32_t>(height, 1, kMost, "the height"),
            fps > 0 ? static_cast<uint32_t>(std::clamp(interval, 1.0, double{kMost})) : 0};
}

std::unique_ptr<OwnStream> start(const SharedCamera& camera, int64_t width, int64_t height,
                                 double fps, const std::string& format)
{
    return std::make_unique<OwnStream>(camera, request_of(width, height, fps, format));
}

std::vector<Format> list_formats(OpenCamera& camera)
{
    const std::vector<NyStreamFormat> found =
        camera.call([](engine::Camera& used) { return nyxus::list_formats(used); });
    std::vector<Format> formats;
    for (const NyStreamFormat& one : found) {
        std::vector<double> rates;
        const auto add = [&](uint32_t interval) {
            if (interval > 0)
                rates.push_back(kSecond_100ns / interval);
        };
        std::for_each_n(one.intervals, std::min<uint32_t>(one.interval_count, NYXUS_MOST_INTERVALS),
                        add);
        if (one.interval_count == 0) {
            add(one.interval_min);
            add(one.interval_max);
        }
        formats.push_back({fourcc_text(one.fourcc), one.width, one.height, std::move(rates)});
    }
    return formats;
}

/// As numpy sees the frame's memory, which lives as long as the array.
py::object pixels(const py::object& self)
{
    if (self.cast<const OwnFrame&>().fourcc != NYXUS_FOURCC_YUYV)
        raise_out_of_range("only YUYV has pixels; data is the file");
    return py::module_::import("numpy").attr("asarray")(self);
}

py::object data(const py::object& self)
{
    return py::memoryview(self).attr("cast")("B");
}

} // namespace

void add_video(py::module_& module, CameraClass& camera)
{
    py::class_<Format>(module, "VideoFormat")
        .def_readonly("format", &Format::format)
        .def_readonly("width", &Format::width)
        .def_readonly("height", &Format::height)
        .def_readonly("rates", &Format::rates)
        .def("__repr__", [](const Format& self) {
            return "<nyxus.VideoFormat " + self.format + " " + std::to_string(self.width) + "x" +
                   std::to_string(self.height) + ">";
        });
    py::class_<StreamStatus>(module, "StreamStatus")
        .def_readonly("rate", &StreamStatus::rate)
        .def_readonly("payload_bytes", &StreamStatus::payload_bytes)
        .def_readonly("frames", &StreamStatus::frames)
        .def_readonly("incomplete", &StreamStatus::incomplete)
        .def_readonly("late", &StreamStatus::late);
    py::class_<OwnFrame>(module, "Frame", py::buffer_protocol())
        .def_buffer(&OwnFrame::buffer)
        .def_property_readonly("format",
                               [](const OwnFrame& self) { return fourcc_text(self.fourcc); })
        .def_readonly("width", &OwnFrame::width)
        .def_readonly("height", &OwnFrame::height)
        .def_readonly("sequence", &OwnFrame::sequence)
        .def_readonly("time_us", &OwnFrame::time_us)
        .def_property_readonly("pixels", pixels)
        .def_property_readonly("data", data)
        .def("__len__", [](const OwnFrame& self) { return self.bytes.size(); })
        .def("__repr__", [](const OwnFrame& self) {
            return "<nyxus.Frame " + fourcc_text(self.fourcc) + " " + std::to_string(self.width) +
                   "x" + std::to_string(self.height) + " #" + std::to_string(self.sequence) + ">";
        });
    py::class_<OwnStream>(module, "Stream")
        .def("next", &OwnStream::next, py::arg("timeout_s") = OwnStream::kPatience_s)
        .def("__iter__", [](const py::object& self) { return self; })
        .def("__next__", &OwnStream::iterate)
        .def_property_readonly("status", &OwnStream::status)
        .def("stop", &OwnStream::stop)
        .def("__enter__", [](const py::object& self) { return self; })
        .def("__exit__", [](OwnStream& self, const py::args&) { self.stop(); });
    camera.def("list_formats", list_formats)
        .def("stream", start, py::arg("width") = 640, py::arg("height") = 480, py::arg("fps") = 0.0,
             py::arg("format") = "YUYV")
        .def(
            "take_picture",
            [](const SharedCamera& self, int64_t width, int64_t height, double fps,
               const std::string& format, double timeout_s) {
                const auto stream = start(self, width, height, fps, format);
                auto frame = stream->next(timeout_s);
                stream->stop();
                return frame;
            },
            py::arg("width") = 640, py::arg("height") = 480, py::arg("fps") = 0.0,
            py::arg("format") = "YUYV", py::arg("timeout_s") = OwnStream::kPatience_s);
}

} // namespace nyxus::python
