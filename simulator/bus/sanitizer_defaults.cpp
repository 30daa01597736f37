// SPDX-License-Identifier: Apache-2.0
// Options of the sanitizers for executables that carry simulated cameras. Unused without them.

// libuvc never frees the status transfer of a camera that it opened: 56 bytes per uvc_open(),
// allocated there or, as releasing the interface ends it and libuvc resubmits, in its event thread.
// libusb loses the devices of a session that ends while one of them comes or goes (a race, seen
// twice). The frames that tell are found by unwinding slowly only: libusb keeps no frame pointers.
// NOLINTBEGIN(bugprone-reserved-identifier): the run-time's names
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:uvc_open\nleak:libusb_handle_events_completed\nleak:nyxus::list_cameras\n";
}

extern "C" const char* __asan_default_options()
{
    return "fast_unwind_on_malloc=0";
}
// NOLINTEND(bugprone-reserved-identifier)
