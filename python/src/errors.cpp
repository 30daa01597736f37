// SPDX-License-Identifier: Apache-2.0
#include "errors.h"

#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <thread>

namespace nyxus::python {

namespace {

using engine::Reason;

// Classes of nyxus._errors, in the order of Reason.
constexpr std::array kClasses = {
    "Error",           "Error",           "Stopped",          "CameraGone",
    "NotBack",         "TimedOut",        "PermissionDenied", "Busy",
    "Protected",       "Mismatch",        "WrongImage",       "NotSupported",
    "UnknownRom",      "FileError",       "BackupNotKept",    "JournalNotKept",
    "NoBackup",        "UncertainBackup", "NothingToRecover", "NotStarted",
    "UnreliableReads", "Untrusted",       "OutOfRange",       "Downgrade",
};
static_assert(kClasses.size() == static_cast<size_t>(Reason::kDowngrade) + 1);

std::atomic<std::thread::id> leaving_thread;

constexpr const char* kOrigins[] = {"library", "library", "usb", "system", "video"};

py::object make(const char* kind, const nyxus::Status& status, const std::string& where)
{
    return py::module_::import("nyxus._errors")
        .attr(kind)(py::str(status.message()), status.code(),
                    kOrigins[static_cast<size_t>(status.origin())], where);
}

} // namespace

WithoutLock::~WithoutLock()
{
    const std::thread::id leaving = leaving_thread;
    while (leaving != std::thread::id() && leaving != std::this_thread::get_id())
        pause();
    PyEval_RestoreThread(state_);
}

void WithoutLock::leave()
{
    constexpr std::chrono::milliseconds kUnderWay{20}; // those that wait for the lock already
    leaving_thread = std::this_thread::get_id();
    const WithoutLock unlocked;
    std::this_thread::sleep_for(kUnderWay);
}

py::object error_of(const engine::Status& status)
{
    if (status)
        return py::none();
    return make(kClasses[static_cast<size_t>(status.reason())], status, status.where());
}

py::object error_of(const nyxus::Status& status)
{
    if (status)
        return py::none();
    return make(kClasses[static_cast<size_t>(status.reason())], status, "");
}

py::object error_of(const engine::Report& report, const py::object& report_object)
{
    py::object error = error_of(report.status);
    if (error.is_none())
        return error;
    error.attr("report") = report_object;
    if (report.rom != engine::RomContents::kIncomplete &&
        report.rom != engine::RomContents::kUnknown)
        return error;
    py::object incomplete = make("Incomplete", report.status, report.status.where());
    incomplete.attr("report") = report_object;
    incomplete.attr("__cause__") = error;
    return incomplete;
}

void raise(const py::object& error)
{
    PyErr_SetObject(py::type::of(error).ptr(), error.ptr());
    throw py::error_already_set();
}

void raise_out_of_range(const std::string& message)
{
    raise(error_of(nyxus::Status(NYXUS_E_RANGE, message)));
}

void raise_busy(const std::string& message)
{
    raise(error_of(engine::Status(Reason::kBusy, message, NYXUS_E_BUSY)));
}

std::vector<uint8_t> bytes_of(const py::buffer& object)
{
    Py_buffer view;
    if (PyObject_GetBuffer(object.ptr(), &view, PyBUF_SIMPLE) != 0)
        throw py::error_already_set();
    const auto* data = static_cast<const uint8_t*>(view.buf);
    std::vector<uint8_t> bytes(data, data + view.len);
    PyBuffer_Release(&view);
    return bytes;
}

py::bytes to_bytes(Bytes bytes)
{
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

} // namespace nyxus::python
