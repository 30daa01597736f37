// SPDX-License-Identifier: Apache-2.0
// Standard controls of the camera terminal and of the processing unit.
#include <nyxus/device.h>
#include <nyxus/streaming.h>

#include <algorithm>

#include "tables/standard_controls.h"
#include "trace/failure.h"
#include "unit.h"
#include "usb/session_state.h"

namespace {

using nyxus::ControlRange;
using nyxus::StandardControl;

/// A control of an open camera. Results are libusb's.
class Control {
public:
    Control(NyDevice* pDevObj, const StandardControl& row) : device_(pDevObj), row_(row)
    {
        unit_ =
            row.unit == nyxus::ControlUnit::kCameraTerminal ? camera_terminal() : processing_unit();
    }

    bool is_present() const { return unit_ != 0; }
    int read(NyControl* control);
    int write(int64_t value);

private:
    uint8_t camera_terminal() const
    {
        const uvc_input_terminal_t* terminal = uvc_get_camera_terminal(device_->uvc_handle);
        return terminal != nullptr && has_bit(terminal->bmControls) ? terminal->bTerminalID : 0;
    }
    uint8_t processing_unit() const
    {
        const uvc_processing_unit_t* unit = uvc_get_processing_units(device_->uvc_handle);
        for (; unit != nullptr; unit = unit->next) {
            if (has_bit(unit->bmControls))
                return unit->bUnitID;
        }
        return 0;
    }
    bool has_bit(uint64_t bits) const { return (bits >> row_.bit & 1) != 0; }

    int note(int result);
    int ask_whole(uvc_req_code request, uint8_t (&bytes)[nyxus::kMostControlBytes]);
    int ask(uvc_req_code request, int64_t* value);
    int ask_if_answered(uvc_req_code request, int64_t* value);
    int ask_range(NyControl* control);

    NyDevice* device_;
    const StandardControl& row_;
    uint8_t unit_;
};

int Control::note(int result)
{
    nyxus::note_whether_gone(device_, result < 0 ? NYXUS_E_LIBUSB(result) : 0);
    return std::min(result, 0);
}

int Control::ask_whole(uvc_req_code request, uint8_t (&bytes)[nyxus::kMostControlBytes])
{
    return note(
        uvc_get_ctrl(device_->uvc_handle, unit_, row_.selector, bytes, row_.length_bytes, request));
}

int Control::ask(uvc_req_code request, int64_t* value)
{
    uint8_t bytes[nyxus::kMostControlBytes] = {};
    const int rc = ask_whole(request, bytes);
    if (rc < 0)
        return rc;
    uint64_t bits = 0;
    for (int i = 0; i < row_.size_bytes; ++i)
        bits |= uint64_t{bytes[row_.offset + i]} << 8 * i;
    const uint64_t sign = (uint64_t{1} << 8 * row_.size_bytes) >> 1;
    *value = static_cast<int64_t>(row_.is_signed ? (bits ^ sign) - sign : bits);
    return 0;
}

/// The value stays as it is where the camera does not know the request.
int Control::ask_if_answered(uvc_req_code request, int64_t* value)
{
    const int rc = ask(request, value);
    return rc == LIBUSB_ERROR_PIPE ? 0 : rc;
}

int Control::ask_range(NyControl* control)
{
    control->minimum = row_.minimum;
    control->maximum = row_.maximum;
    control->step = 1;
    if (row_.range == ControlRange::kFixed)
        return 0;
    int rc = 0;
    if (row_.range == ControlRange::kAsked) {
        rc = ask(UVC_GET_MIN, &control->minimum);
        if (rc == 0)
            rc = ask(UVC_GET_MAX, &control->maximum);
    }
    if (rc == 0)
        rc = ask_if_answered(UVC_GET_RES, &control->step);
    control->step = std::max<int64_t>(control->step, 1);
    return rc;
}

int Control::read(NyControl* control)
{
    *control = {};
    control->id = row_.id;
    control->name = row_.name;
    int rc = ask(UVC_GET_CUR, &control->value);
    if (rc == 0)
        rc = ask_range(control);
    control->default_value = control->value;
    if (rc == 0)
        rc = ask_if_answered(UVC_GET_DEF, &control->default_value);
    return rc;
}

/// What else the control holds stays as it is.
int Control::write(int64_t value)
{
    uint8_t bytes[nyxus::kMostControlBytes] = {};
    if (row_.size_bytes < row_.length_bytes) {
        const int rc = ask_whole(UVC_GET_CUR, bytes);
        if (rc < 0)
            return rc;
    }
    for (int i = 0; i < row_.size_bytes; ++i)
        bytes[row_.offset + i] = static_cast<uint8_t>(value >> 8 * i);
    return note(uvc_set_ctrl(device_->uvc_handle, unit_, row_.selector, bytes, row_.length_bytes));
}

} // namespace

const char* nyxus_control_name(uint32_t id)
{
    const StandardControl* row = nyxus::find_standard_control(id);
    return row != nullptr ? row->name : nullptr;
}

int32_t nyxus_list_controls(NyDevice* pDevObj, NyControl* controls, uint32_t capacity)
{
    NY_REQUIRE_DEVICE(pDevObj);
    if (capacity > 0)
        NY_REQUIRE(controls);
    if (!nyxus::is_session_open(*pDevObj))
        return NY_FAIL_LIBUSB(LIBUSB_ERROR_NO_DEVICE, "uvc_get_ctrl");
    uint32_t count = 0;
    for (uint32_t id = 0; id < NYXUS_CONTROL_COUNT; ++id) {
        Control present(pDevObj, *nyxus::find_standard_control(id));
        NyControl control;
        const int rc = present.is_present() ? present.read(&control) : LIBUSB_ERROR_NOT_FOUND;
        if (rc == LIBUSB_ERROR_NO_DEVICE)
            return NY_FAIL_LIBUSB(rc, "uvc_get_ctrl");
        if (rc < 0)
            continue; // absent, or announced but not there
        if (count < capacity)
            controls[count] = control;
        ++count;
    }
    return static_cast<int32_t>(count);
}

int32_t nyxus_get_control(NyDevice* pDevObj, uint32_t id, NyControl* control)
{
    NY_REQUIRE_DEVICE(pDevObj);
    NY_REQUIRE(control);
    if (!nyxus::is_session_open(*pDevObj))
        return NY_FAIL_LIBUSB(LIBUSB_ERROR_NO_DEVICE, "uvc_get_ctrl");
    const StandardControl* row = nyxus::find_standard_control(id);
    if (row == nullptr)
        return NY_FAIL(NYXUS_E_RANGE, "standard control %u is unknown", id);
    Control present(pDevObj, *row);
    if (!present.is_present())
        return NY_FAIL(NYXUS_E_RANGE, "the camera has no control '%s'", row->name);
    const int rc = present.read(control);
    return rc < 0 ? NY_FAIL_LIBUSB(rc, "uvc_get_ctrl") : 0;
}

int32_t nyxus_set_control(NyDevice* pDevObj, uint32_t id, int64_t value)
{
    NyControl control = {};
    NY_TRY(nyxus_get_control(pDevObj, id, &control));
    const nyxus::DeviceScope scope(pDevObj);
    if (value < control.minimum || value > control.maximum) {
        return NY_FAIL(NYXUS_E_RANGE, "'%s' ranges from %lld to %lld", control.name,
                       static_cast<long long>(control.minimum),
                       static_cast<long long>(control.maximum));
    }
    const int rc = Control(pDevObj, *nyxus::find_standard_control(id)).write(value);
    return rc < 0 ? NY_FAIL_LIBUSB(rc, "uvc_set_ctrl") : 0;
}
