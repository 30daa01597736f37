// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "terminal/exit_codes.h"

#include <cstdint>
#include <exception>
#include <nyxus/engine/status.hpp>
#include <string>
#include <utility>

namespace tool {

namespace engine = nyxus::engine;

/// Ends a command: one line for the user, and the program's exit code.
class Failure : public std::exception {
public:
    Failure(ExitCode code, std::string text) : code_(code), text_(std::move(text)) {}

    ExitCode code() const { return code_; }
    const std::string& text() const { return text_; }
    const char* what() const noexcept override { return text_.c_str(); }

private:
    ExitCode code_;
    std::string text_;
};

/// "DOING: REASON; ADVICE [where it began]".
Failure failure_of(const engine::Status& status, const std::string& advice = "");

/// What a library call's failure means to the user.
Failure library_failure(const std::string& doing, int32_t status, const std::string& advice = "");

/// What a libusb code (negative) means to the user.
using engine::usb_reason;
Failure usb_failure(const std::string& doing, int libusb_code);

/// Ends the command unless there is success.
inline void require(const engine::Status& status)
{
    if (!status)
        throw failure_of(status);
}

/// The value; ends the command if there is none.
template <typename T>
T value_of(engine::Result<T> result, const std::string& advice = "")
{
    if (!result)
        throw failure_of(result.status(), advice);
    return *std::move(result);
}

} // namespace tool
