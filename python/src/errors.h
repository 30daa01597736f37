// SPDX-License-Identifier: Apache-2.0
// A failure of C++ becomes an exception of nyxus._errors. All of it is for threads that hold the
// interpreter's lock.
#pragma once

#include "words.h"

namespace nyxus::python {

/// Lets other threads have the interpreter meanwhile.
class WithoutLock {
public:
    WithoutLock() : state_(PyEval_SaveThread()) {}
    ~WithoutLock();
    WithoutLock(const WithoutLock&) = delete;
    WithoutLock& operator=(const WithoutLock&) = delete;

    /// The interpreter is about to end: from now on other threads that want it back wait for the
    /// end of the process. The interpreter would end them in the middle of C++.
    static void leave();

private:
    PyThreadState* state_;
};

/// The exception that stands for a failure; None for success.
py::object error_of(const engine::Status& status);
py::object error_of(const nyxus::Status& status);
/// The one of a change of the ROM, with its report: Incomplete where the ROM holds no firmware now,
/// whose cause is the failure.
py::object error_of(const engine::Report& report, const py::object& report_object);

[[noreturn]] void raise(const py::object& error);
/// An argument beyond its range.
[[noreturn]] void raise_out_of_range(const std::string& message);
/// Somebody else is at it.
[[noreturn]] void raise_busy(const std::string& message);

/// The value, or the exception.
template <typename T, typename Why>
T value_of(nyxus::Result<T, Why>&& result)
{
    if (!result)
        raise(error_of(result.status()));
    return *std::move(result);
}

template <typename Why>
requires std::derived_from<Why, nyxus::Status>
void value_of(const Why& status)
{
    if (!status.ok())
        raise(error_of(status));
}

/// What blocks for files or the bus, without the interpreter's lock; its value, or the exception.
template <typename Function>
auto blocking(Function&& function)
{
    auto result = [&] {
        const WithoutLock unlocked;
        return function();
    }();
    return value_of(std::move(result));
}

/// A number that has to be in this range.
template <typename Number>
Number in_range(int64_t value, int64_t least, int64_t most, const char* what)
{
    if (value < least || value > most) {
        raise_out_of_range(std::string(what) + " is " + std::to_string(least) + " to " +
                           std::to_string(most));
    }
    return static_cast<Number>(value);
}

/// The contents of any object with bytes: bytes, bytearray, memoryview, array.
std::vector<uint8_t> bytes_of(const py::buffer& object);
py::bytes to_bytes(Bytes bytes);

} // namespace nyxus::python
