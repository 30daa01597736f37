// SPDX-License-Identifier: Apache-2.0
#include "output.h"

#include <nyxus/device.h>
#include <nyxus/error.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace nyxus {

namespace {

NyLineCallback default_line_callback;
void* default_line_user;
NyProgressCallback default_progress_callback;
void* default_progress_user;

template <typename Callback>
struct Handler {
    Callback callback;
    void* user;
};

Handler<NyLineCallback> line_handler()
{
    const NyDevice* device = DeviceScope::current();
    if (device != nullptr && device->line_callback != nullptr)
        return {device->line_callback, device->line_user};
    return {default_line_callback, default_line_user};
}

Handler<NyProgressCallback> progress_handler()
{
    const NyDevice* device = DeviceScope::current();
    if (device != nullptr && device->progress_callback != nullptr)
        return {device->progress_callback, device->progress_user};
    return {default_progress_callback, default_progress_user};
}

__thread bool in_callback;

/// A callback is running: it is not called again by what it calls, and the error state of the call
/// under way outlives it.
class CallbackScope {
public:
    CallbackScope() : system_error_(errno), error_(nyxus_errno), rv_(nyxus_rv)
    {
        in_callback = true;
        std::memcpy(detail_, nyxus_errtmp, sizeof detail_);
        std::memcpy(message_, nyxus_errmsg, sizeof message_);
    }
    ~CallbackScope()
    {
        std::memcpy(nyxus_errmsg, message_, sizeof message_);
        std::memcpy(nyxus_errtmp, detail_, sizeof detail_);
        nyxus_rv = rv_;
        nyxus_errno = error_;
        errno = system_error_;
        in_callback = false;
    }
    CallbackScope(const CallbackScope&) = delete;
    CallbackScope& operator=(const CallbackScope&) = delete;

private:
    int system_error_;
    int32_t error_;
    int32_t rv_;
    char detail_[sizeof nyxus_errtmp];
    char message_[sizeof nyxus_errmsg];
};

} // namespace

bool is_in_callback()
{
    return in_callback;
}

bool has_line_callback()
{
    return line_handler().callback != nullptr;
}

void put(uint32_t kind, const char* text, size_t length)
{
    if (in_callback)
        return;
    const auto handler = line_handler();
    if (handler.callback == nullptr) {
        if (kind != NYXUS_LINE_MARKS || progress_handler().callback == nullptr)
            std::fwrite(text, 1, length, kind == NYXUS_LINE_OUTPUT ? stdout : stderr);
        return;
    }
    const CallbackScope scope;
    handler.callback(DeviceScope::current(), kind, text, length, handler.user);
}

void report_progress(uint64_t done, uint64_t total)
{
    const auto handler = progress_handler();
    if (handler.callback == nullptr || in_callback)
        return;
    const CallbackScope scope;
    handler.callback(DeviceScope::current(), done, total, handler.user);
}

} // namespace nyxus

void nyxus_set_line_callback(NyDevice* pDevObj, NyLineCallback callback, void* user)
{
    (pDevObj != nullptr ? pDevObj->line_callback : nyxus::default_line_callback) = callback;
    (pDevObj != nullptr ? pDevObj->line_user : nyxus::default_line_user) = user;
}

void nyxus_set_progress_callback(NyDevice* pDevObj, NyProgressCallback callback, void* user)
{
    (pDevObj != nullptr ? pDevObj->progress_callback : nyxus::default_progress_callback) = callback;
    (pDevObj != nullptr ? pDevObj->progress_user : nyxus::default_progress_user) = user;
}
