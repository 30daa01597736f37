// SPDX-License-Identifier: Apache-2.0
//
// Debian's libuvc and libusb do not survive a camera that goes while they stop or close it:
//   * libuvc frees a transfer that it cannot cancel, though libusb goes on to complete it;
//   * libuvc waits for ever for a transfer that it could not submit once more;
//   * libusb unlocks what it never locked when libuvc resets an interface of a detached camera, and
//     aborts when the handle is closed.
// A camera that is known to be gone is not touched any more. Of one that is there, a thread of its
// own enters libuvc while libuvc's event thread (or libusb's event lock, without one) is held. As
// soon as it waits for that one, it has cancelled every transfer, or released every interface. If
// the camera is still there by then, all of that went well, and libuvc ends as it should, whatever
// comes. If it is not, the event thread stays where it is: nobody meets what has been freed, and
// the handle is never closed.
#include "safe_stop.h"

#include <linux/futex.h>
#include <pthread.h>
#include <semaphore.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

#include "held_events.h"
#include "safe_start.h"
#include "semaphore_wait.h"
#include "usb/session_state.h"

namespace {

constexpr timespec kPause = {0, 200 * 1000};
constexpr int kMostGlances = 2500;     // 0.5 s, on a machine that is busy
constexpr int kMostBlindGlances = 100; // 20 ms, where the kernel does not tell
constexpr long kStep_ns = 5 * 1000000;
constexpr int kStepsOfAGoneCamera = 100; // 0.5 s
constexpr int kMostSteps = 1000;         // 5 s

/// A function of libuvc, and how it waits for the event thread.
struct Call {
    void (*enter)(uvc_device_handle_t*);
    unsigned futex_operation;
};
constexpr auto kFutexCommands = static_cast<unsigned>(FUTEX_CMD_MASK);
constexpr Call kStop = {uvc_stop_streaming, FUTEX_WAIT_BITSET}; // a condition
constexpr Call kClose = {uvc_close, FUTEX_WAIT};                // a lock

/// One call of libuvc, on a thread of its own.
class Entry {
public:
    static Entry* start(const Call& call, uvc_device_handle_t* handle);
    /// Until libuvc waits for another thread, has returned, or has taken its time.
    void await_rest();
    bool has_returned();
    /// Whether it returns within a step.
    bool returns_soon();
    /// Waits for the thread, and frees the object.
    void finish();

private:
    /// What the kernel says of where the thread waits.
    struct Place {
        char text[160];
    };

    static void* run(void* entry);
    bool rests(Place* place);

    Call call_;
    uvc_device_handle_t* handle_;
    pthread_t thread_;
    std::atomic<pid_t> id_;
    sem_t returned_;
    bool is_blind_;
};

Entry* Entry::start(const Call& call, uvc_device_handle_t* handle)
{
    void* memory = std::malloc(sizeof(Entry));
    if (memory == nullptr)
        return nullptr;
    auto* entry = new (memory) Entry;
    entry->call_ = call;
    entry->handle_ = handle;
    entry->id_ = 0;
    entry->is_blind_ = false;
    sem_init(&entry->returned_, 0, 0);
    if (pthread_create(&entry->thread_, nullptr, run, entry) == 0)
        return entry;
    sem_destroy(&entry->returned_);
    std::free(entry);
    return nullptr;
}

void* Entry::run(void* entry)
{
    auto* self = static_cast<Entry*>(entry);
    self->id_ = gettid();
    self->call_.enter(self->handle_);
    sem_post(&self->returned_);
    return nullptr;
}

/// Whether the thread waits for another one in the call's own way.
bool Entry::rests(Place* place)
{
    *place = {};
    if (id_ == 0)
        return false; // it has not begun
    char path[64];
    std::snprintf(path, sizeof path, "/proc/self/task/%d/syscall", static_cast<int>(id_));
    std::FILE* file = std::fopen(path, "re");
    is_blind_ = file == nullptr;
    if (is_blind_)
        return false;
    long number = -1;
    unsigned operation = 0; // the second argument of the system call
    const bool waits = std::fgets(place->text, sizeof place->text, file) != nullptr &&
                       std::sscanf(place->text, "%ld %*x %x", &number, &operation) == 2 &&
                       number == SYS_futex && (operation & kFutexCommands) == call_.futex_operation;
    std::fclose(file);
    return waits;
}

void Entry::await_rest()
{
    Place before = {};
    for (int glance = 0; glance < kMostGlances && !has_returned(); ++glance) {
        if (is_blind_ && glance >= kMostBlindGlances)
            return;
        Place now;
        if (rests(&now) && std::strcmp(now.text, before.text) == 0)
            return;
        before = now;
        nanosleep(&kPause, nullptr);
    }
}

bool Entry::has_returned()
{
    int value = 0;
    sem_getvalue(&returned_, &value);
    return value != 0;
}

bool Entry::returns_soon()
{
    if (!nyxus::wait_for(returned_, kStep_ns))
        return false;
    sem_post(&returned_); // it stays so
    return true;
}

void Entry::finish()
{
    pthread_join(thread_, nullptr);
    sem_destroy(&returned_);
    std::free(this);
}

bool has_gone(NyDevice* pDevObj, uvc_device_handle_t* handle)
{
    if (nyxus::is_gone(uvc_get_libusb_handle(handle)))
        pDevObj->device_gone = 1;
    return pDevObj->device_gone != 0;
}

/// Waits for libuvc; false when the camera's going has cost it the way back.
bool await_return(NyDevice* pDevObj, uvc_device_handle_t* handle, Entry* entry)
{
    for (int step = 0; !entry->returns_soon(); ++step) {
        const bool gone = step >= kStepsOfAGoneCamera && has_gone(pDevObj, handle);
        if (gone || step >= kMostSteps)
            return false;
    }
    return true;
}

/// libuvc's session is in pieces now: nothing may enter it any more.
void abandon_for_good(NyDevice* pDevObj, Entry* entry)
{
    pDevObj->device_gone = 1;
    pDevObj->session_closed = nyxus::kSessionBroken;
    pDevObj->uvc_handle = nullptr;
    if (entry->has_returned())
        entry->finish();
}

/// Who completes transfers waits until let_go(): libuvc's event thread or, for an object without
/// one, whoever would close the handle, since that takes libusb's event lock.
class Hold {
public:
    Hold(NyDevice* pDevObj, uvc_device_handle_t* handle) : context_(pDevObj->usb_context)
    {
        if (context_ != nullptr) {
            libusb_lock_events(context_);
        } else {
            events_ = nyxus::HeldEvents::hold(uvc_get_libusb_handle(handle));
        }
    }
    void let_go()
    {
        if (context_ != nullptr) {
            libusb_unlock_events(context_);
        } else if (events_ != nullptr) {
            events_->let_go();
        }
    }

private:
    libusb_context* context_;
    nyxus::HeldEvents* events_ = nullptr;
};

/// False when the camera has gone, and what it had here is abandoned.
bool enter_while_held(NyDevice* pDevObj, uvc_device_handle_t* handle, Entry* entry, Hold& hold)
{
    entry->await_rest();
    const bool was_there = !has_gone(pDevObj, handle);
    if (was_there)
        hold.let_go();
    if (!was_there || !await_return(pDevObj, handle, entry)) {
        abandon_for_good(pDevObj, entry);
        return false;
    }
    entry->finish();
    return true;
}

bool enter_safely(NyDevice* pDevObj, uvc_device_handle_t* handle, const Call& call)
{
    if (has_gone(pDevObj, handle))
        return false;
    Hold hold(pDevObj, handle);
    const bool is_there = !has_gone(pDevObj, handle);
    Entry* entry = is_there ? Entry::start(call, handle) : nullptr;
    if (entry != nullptr)
        return enter_while_held(pDevObj, handle, entry, hold);
    hold.let_go();
    if (is_there)
        call.enter(handle); // there is no thread to be had
    return is_there;
}

} // namespace

bool nyxus::is_gone(libusb_device_handle* handle)
{
    return libusb_kernel_driver_active(handle, 0) == LIBUSB_ERROR_NO_DEVICE;
}

bool nyxus::stop_streams(NyDevice* pDevObj)
{
    uvc_device_handle_t* handle = pDevObj->uvc_handle;
    if (handle == nullptr)
        return pDevObj->device_gone == 0;
    forget_stream(uvc_get_libusb_handle(handle));
    if (pDevObj->stream_running) {
        const bool stopped = enter_safely(pDevObj, handle, kStop);
        pDevObj->stream_running = stopped ? 0 : 1;
        return stopped;
    }
    if (has_gone(pDevObj, handle))
        return false;
    uvc_stop_streaming(handle); // finds nothing to stop
    return true;
}

void nyxus::close_session(NyDevice* pDevObj, uvc_device_handle_t* handle)
{
    if (pDevObj->session_closed != kSessionOpen)
        return;
    pDevObj->session_closed = kSessionClosed;
    const bool closed =
        pDevObj->device_gone == 0 && (handle == nullptr || enter_safely(pDevObj, handle, kClose));
    if (!closed)
        return;
    if (pDevObj->uvc_context != nullptr)
        uvc_exit(pDevObj->uvc_context);
    if (pDevObj->usb_context != nullptr)
        libusb_exit(pDevObj->usb_context);
    pDevObj->usb_context = nullptr;
}
