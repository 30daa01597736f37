// SPDX-License-Identifier: Apache-2.0
// Options of the sanitizers for a build with them. Unused without.

// The library never frees a device object, by contract, and libuvc never the status transfer of a
// camera that it opened; libusb loses the devices of a session that ends while one of them is being
// unplugged (a race, seen once). The frames that tell are found by unwinding
// slowly only: libusb keeps no frame pointers. A simulated camera's libraries are loaded before the
// sanitizer's. NOLINTBEGIN(bugprone-reserved-identifier): the run-time's names
extern "C" const char* __lsan_default_suppressions()
{
    return "leak:DEV_CreateObjectUsb\nleak:uvc_open\nleak:init_uvc_video\n"
           "leak:libusb_handle_events_completed\nleak:nyxus::list_cameras\n";
}

extern "C" const char* __lsan_default_options()
{
    return "print_suppressions=0";
}

extern "C" const char* __asan_default_options()
{
    return "fast_unwind_on_malloc=0:verify_asan_link_order=0";
}
// NOLINTEND(bugprone-reserved-identifier)
