// SPDX-License-Identifier: Apache-2.0
// How a failure starts (NY_FAIL...) and how it travels up (NY_TRY...).
#pragma once

#include <nyxus/error.h>

#include "trace_line.h"

namespace nyxus {

enum class FailureTag { kNyxus, kLibusb, kSystem };

struct FailurePlace {
    const char* function; ///< an exported one
    const char* unit;
    int line;
};

/// Records code, place and detail for this thread, traces them, and returns `code`.
int32_t raise_failure(FailureTag tag, int32_t code, const FailurePlace& place, const char* format,
                      ...) __attribute__((format(printf, 4, 5), cold));

/// Stores the status of a call that failed, traces the call as written, and returns the status.
int32_t pass_on(const char* function, const char* call, int32_t status) __attribute__((cold));

/// The same where the trace names the device.
int32_t pass_on(const char* function, const NyDevice* device, const char* call, int32_t status)
    __attribute__((cold));

} // namespace nyxus

#define NY_FAIL_AT(line, code, ...) \
    nyxus::raise_failure(nyxus::FailureTag::kNyxus, (code), {__func__, kUnit, (line)}, __VA_ARGS__)
#define NY_FAIL(code, ...) NY_FAIL_AT(__LINE__, code, __VA_ARGS__)

/// `call` names the libusb function that returned `rc`, `function` the exported function that
/// failed.
#define NY_FAIL_LIBUSB_AS(function, rc, call)                               \
    nyxus::raise_failure(nyxus::FailureTag::kLibusb, NYXUS_E_LIBUSB(rc),    \
                         {function, kUnit, __LINE__}, call "() FAILED, %s", \
                         libusb_strerror(static_cast<libusb_error>(rc)))
#define NY_FAIL_LIBUSB(rc, call) NY_FAIL_LIBUSB_AS(__func__, rc, call)
#define NY_FAIL_SYSTEM(err, ...)                                          \
    nyxus::raise_failure(nyxus::FailureTag::kSystem, NYXUS_E_SYSTEM(err), \
                         {__func__, kUnit, __LINE__}, __VA_ARGS__)

#define NY_TRY(call) NY_TRY_AS(#call, call)
#define NY_TRY_AS(text, call)                                 \
    do {                                                      \
        const int32_t ny_status = (call);                     \
        if (ny_status < 0)                                    \
            return nyxus::pass_on(__func__, text, ny_status); \
    } while (false)

/// Also leaves a success in nyxus_rv.
#define NY_TRY_STORED(call)                                   \
    do {                                                      \
        nyxus_rv = (call);                                    \
        if (nyxus_rv < 0)                                     \
            return nyxus::pass_on(__func__, #call, nyxus_rv); \
    } while (false)

#define NY_FAIL_NULL(code, argument) NY_FAIL(code, "'%s' cannot be NULL", #argument)
#define NY_REQUIRE_AS(code, argument)            \
    do {                                         \
        if ((argument) == nullptr)               \
            return NY_FAIL_NULL(code, argument); \
    } while (false)
#define NY_REQUIRE(argument) NY_REQUIRE_AS(NYXUS_E_RANGE, argument)
/// What the rest of the function prints and transfers belongs to the device.
#define NY_REQUIRE_DEVICE(argument)               \
    NY_REQUIRE_AS(NYXUS_E_DEVICE_NULL, argument); \
    const nyxus::DeviceScope ny_device_scope(argument)
