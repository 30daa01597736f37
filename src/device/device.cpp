// SPDX-License-Identifier: Apache-2.0
// Creation, probe and deletion of the device object.
#include <nyxus/config.h>
#include <nyxus/memory.h>
#include <nyxus/registers.h>

#include <cstdlib>

#include "trace/failure.h"
#include "unit.h"
#include "usb/control_lengths.h"
#include "usb/session_state.h"
#include "video/safe_stop.h"

static constexpr char kCreate[] = "DEV_CreateObjectUsb"; // its steps trace as it does
static constexpr uint8_t kSupportedDriver = 1;
static constexpr uint8_t kVideoClass = 0x0E;
static constexpr uint8_t kMiscellaneousClass = 0xEF; // its bits are in 0xFF, vendor-specific, too
static constexpr uint16_t kVendor = 0x1162;

static_assert(sizeof(void*) != 8 ||
              (offsetof(NyDevice, usb_device) == 8 && offsetof(NyDevice, usb_handle) == 16 &&
               offsetof(NyDevice, uvc_context) == 24 && offsetof(NyDevice, uvc_handle) == 32 &&
               offsetof(NyDevice, stream_ctrl) == 40));
static_assert(offsetof(NyDevice, oBackend) == (offsetof(NyDevice, szIntFwVer) + 11 + 3) / 4 * 4 &&
              offsetof(NyDevice, oXuCtrlVer) == offsetof(NyDevice, oBackend) + 48 &&
              offsetof(NyDevice, xFeatureXU) == offsetof(NyDevice, oXuCtrlVer) + 11 &&
              offsetof(NyDevice, wExtSensorApId) == offsetof(NyDevice, oFwStatus) + 4 &&
              offsetof(NyDevice, oFlashInfo) == offsetof(NyDevice, szSetfileVer) + 11 &&
              offsetof(NyDevice, xSpiMode) == offsetof(NyDevice, oFlashInfo) + 45 &&
              offsetof(NyDevice, device_gone) > offsetof(NyDevice, dwExtRomSize));

static bool may_be_camera(uint8_t device_class)
{
    return device_class == kVideoClass ||
           (device_class & kMiscellaneousClass) == kMiscellaneousClass;
}

/// The handle stays NULL on failure, and the probe fails on it next.
static void open_with_libusb(NyDevice* pDevObj)
{
    const int rc = libusb_open(pDevObj->usb_device, &pDevObj->usb_handle);
    if (rc < 0) {
        pDevObj->usb_handle = nullptr;
        (void)NY_FAIL_LIBUSB_AS(kCreate, rc, "libusb_open");
    }
}

/// Without libuvc's handle the device is looked at and opened here. Frees what it refuses as no
/// video device.
static NyDevice* open_without_libuvc(NyDevice* pDevObj)
{
    NY_TRACE_BARE(NY_TRACE_STEP, "<INFO> init libusb \n");
    libusb_init(nullptr);
    libusb_device_descriptor descriptor = {};
    libusb_get_device_descriptor(pDevObj->usb_device, &descriptor);
    if (!may_be_camera(descriptor.bDeviceClass)) {
        nyxus::close_session(pDevObj, pDevObj->uvc_handle);
        std::free(pDevObj);
        return nullptr;
    }
    if (descriptor.idVendor != kVendor) {
        if (nyxus::traces(NY_TRACE_ENUM)) {
            nyxus::trace_line(NY_TRACE_ENUM, kCreate, "skip device Vid=%X,Pid=%X\n",
                              descriptor.idVendor, descriptor.idProduct);
        }
        nyxus::close_session(pDevObj, pDevObj->uvc_handle);
        return nullptr;
    }
    open_with_libusb(pDevObj);
    return pDevObj;
}

static void release_interface(const char* function, libusb_device_handle* handle)
{
    const int rc = libusb_release_interface(handle, 0);
    if (rc < 0)
        (void)NY_FAIL_LIBUSB_AS(function, rc, "libusb_release_interface");
}

/// Whoever opened the USB handle closes it: libuvc its own, the library its own.
static void close_after_failed_probe(NyDevice* pDevObj)
{
    if (pDevObj->usb_handle != nullptr)
        release_interface(kCreate, pDevObj->usb_handle);
    const bool own_handle = uvc_get_libusb_handle(pDevObj->uvc_handle) != pDevObj->usb_handle;
    if (own_handle && pDevObj->usb_handle != nullptr)
        libusb_close(pDevObj->usb_handle);
    nyxus::close_session(pDevObj, pDevObj->uvc_handle);
}

NyDevice* DEV_CreateObjectUsb(libusb_device* device)
{
    if (nyxus_driver_type != kSupportedDriver) {
        (void)NY_FAIL(NYXUS_E_MISMATCH, "Driver type not match");
        return nullptr;
    }
    auto* pDevObj = static_cast<NyDevice*>(std::calloc(1, sizeof(NyDevice)));
    if (pDevObj == nullptr) {
        (void)NY_FAIL(NYXUS_E_NO_MEMORY, "Device object malloc FAILED");
        return nullptr;
    }
    const nyxus::DeviceScope scope(pDevObj);
    pDevObj->state = 1;
    pDevObj->index = -1;
    pDevObj->usb_device = device;

    // An object that has been handed out, or given up early, is never freed: callers keep pointers.
    init_uvc_video(pDevObj);
    if (pDevObj->uvc_handle == nullptr) {
        nyxus::close_session(pDevObj, nullptr);
        return nullptr;
    }
    pDevObj->usb_handle = uvc_get_libusb_handle(pDevObj->uvc_handle);
    if (pDevObj->usb_handle == nullptr && open_without_libuvc(pDevObj) == nullptr)
        return nullptr;
    if (pDevObj->usb_handle != nullptr)
        libusb_set_auto_detach_kernel_driver(pDevObj->usb_handle, 1);

    if (DEV_Init(pDevObj) != 0) {
        NY_TRACE(NY_TRACE_ENUM, "Device object probe FAILED \n");
        close_after_failed_probe(pDevObj);
        std::free(pDevObj); // nobody has seen it
        return nullptr;
    }
    NY_TRACE_BARE(NY_TRACE_STEP, "<INFO> Device object acquire OK \n");
    return pDevObj;
}

static int32_t check_control_lengths(NyDevice* pDevObj)
{
    const int32_t rv = nyxus::learn_control_lengths(pDevObj);
    nyxus::note_whether_gone(pDevObj, rv);
    return rv;
}

int32_t DEV_Init(NyDevice* pDevObj)
{
    NY_REQUIRE_DEVICE(pDevObj);
    int32_t rv = MP_QueryXuVersion(pDevObj);
    if (rv < 0)
        return nyxus::pass_on(__func__, pDevObj, "MP_QueryXuVersion()", rv);
    NY_TRACE_DEV(NY_TRACE_DEBUG, "check XU control length \n");
    rv = check_control_lengths(pDevObj);
    if (rv < 0)
        return nyxus::pass_on(__func__, pDevObj, "check Xu Control length", rv);
    rv = MP_QueryChipInfo(pDevObj);
    if (rv != 0) // an unknown chip is a positive status
        return nyxus::pass_on(__func__, pDevObj, "MP_QueryChipInfo()", rv);
    rv = MP_QueryModuleInfo(pDevObj);
    if (rv < 0)
        return nyxus::pass_on(__func__, pDevObj, "MP_QueryModuleInfo()", rv);
    rv = MP_QueryExtRom(pDevObj);
    if (rv < 0)
        return nyxus::pass_on(__func__, pDevObj, "MP_QueryExtRom()", rv);
    NY_TRACE_BARE(NY_TRACE_STEP, "<INFO> Device object allocated and initialized \n");
    return rv;
}

void DEV_DeleteObject(NyDevice* pDevObj)
{
    if (pDevObj == nullptr)
        return;
    const nyxus::DeviceScope scope(pDevObj);
    // Also tells whether a camera that was idle is still there.
    const uint8_t snapshot_mode = 0x01;
    (void)XuRegWrite(pDevObj, XDATA_SG_SNAPSHOT_MODE, 1, &snapshot_mode);
    if (close_libuvc(pDevObj) != 0 && pDevObj->usb_handle != nullptr) {
        release_interface(__func__, pDevObj->usb_handle);
        libusb_close(pDevObj->usb_handle);
    }
    NY_TRACE_BARE(NY_TRACE_STEP, "<INFO> Device object released \n");
    nyxus_set_line_callback(pDevObj, nullptr, nullptr);
    nyxus_set_progress_callback(pDevObj, nullptr, nullptr);
}
