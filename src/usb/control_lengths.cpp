// SPDX-License-Identifier: Apache-2.0
#include "control_lengths.h"

#include <nyxus/device.h>

#include <mutex>

static_assert(sizeof(NyDevice::control_lengths) == (UINT8_MAX + 1) * sizeof(uint16_t) &&
              sizeof(NyDevice::control_length_known) * 8 == UINT8_MAX + 1);

namespace {

/// What a probe last put into a row, and through which handle.
struct ProbedRow {
    const uvc_xu_ctrl* row;
    const libusb_device_handle* handle;
    uint16_t length;
};

/// Several times the rows of the exported tables, since hosts may probe tables of their own. When
/// it is full, the oldest row is forgotten: its length counts as the host's from then on.
constexpr size_t kCapacity = 512;

std::mutex mutex; // a row changes together with what is remembered of it
ProbedRow probed_rows[kCapacity];
size_t next_row;

ProbedRow* find_probed(const uvc_xu_ctrl& row)
{
    for (ProbedRow& probed : probed_rows) {
        if (probed.row == &row)
            return &probed;
    }
    return nullptr;
}

void remember(const uvc_xu_ctrl& row, uint16_t length, const libusb_device_handle* handle)
{
    ProbedRow* place = find_probed(row);
    if (place == nullptr) {
        place = &probed_rows[next_row];
        next_row = (next_row + 1) % kCapacity;
    }
    *place = {&row, handle, length};
}

bool is_kept(const NyDevice* pDevObj, uint8_t selector)
{
    return (pDevObj->control_length_known[selector / 8] >> selector % 8 & 1) != 0;
}

} // namespace

// The length is a plain published field, which other threads may be reading.

uint16_t nyxus::row_length(const uvc_xu_ctrl& row)
{
    return __atomic_load_n(&row.length, __ATOMIC_RELAXED);
}

uint16_t nyxus::correct_row(uvc_xu_ctrl& row, uint16_t length, const libusb_device_handle* handle)
{
    const std::lock_guard lock(mutex);
    const uint16_t before = row_length(row);
    if (length != before)
        __atomic_store_n(&row.length, length, __ATOMIC_RELAXED);
    remember(row, length, handle);
    return before;
}

void nyxus::keep_length(NyDevice* pDevObj, uint8_t selector, uint16_t length)
{
    pDevObj->control_lengths[selector] = length;
    pDevObj->control_length_known[selector / 8] |= static_cast<uint8_t>(1 << selector % 8);
}

uint16_t nyxus::control_length(const NyDevice* pDevObj, const uvc_xu_ctrl& row)
{
    const uint16_t own = pDevObj->control_lengths[row.selector];
    const uint16_t seen = row_length(row);
    if (seen == own || !is_kept(pDevObj, row.selector))
        return seen;
    const std::lock_guard lock(mutex);
    const uint16_t length = row_length(row);
    const ProbedRow* probed = find_probed(row);
    const bool is_another_cameras =
        probed != nullptr && probed->length == length && probed->handle != pDevObj->usb_handle;
    return is_another_cameras ? own : length;
}
