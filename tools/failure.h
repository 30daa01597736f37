// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "exit_codes.h"

#include <cstdint>
#include <exception>
#include <string>
#include <utility>

namespace tool {

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

/// What a library call's failure means to the user: "DOING: REASON; ADVICE [where it began]".
Failure library_failure(const std::string& doing, int32_t status, const std::string& advice = "");

/// What a libusb code (negative) means to the user.
std::string usb_reason(int libusb_code);
Failure usb_failure(const std::string& doing, int libusb_code);

} // namespace tool
