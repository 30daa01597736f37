// SPDX-License-Identifier: Apache-2.0
#include "support/open_cameras.h"
#include "cameras/shipped.h"

#include <algorithm>
#include <cstdlib>

namespace fuzz {

Cameras::Cameras()
{
    for (const std::string_view model : kModels)
        cameras_.push_back(&bed_.plug(*sim::find_model(model)));
    libusb_device** list = nullptr;
    if (libusb_init(nullptr) != 0)
        std::abort();
    const ssize_t count = libusb_get_device_list(nullptr, &list);
    for (const sim::PluggedCamera* camera : cameras_) {
        libusb_device** found =
            std::find_if(list, list + std::max<ssize_t>(count, 0), [&](libusb_device* device) {
                return libusb_get_device_address(device) == camera->address();
            });
        if (count < 0 || found == list + count)
            std::abort();
        devices_.push_back(libusb_ref_device(*found));
    }
    libusb_free_device_list(list, 1);
}

LibraryState::LibraryState()
{
    LIB_NyxusGetConfig(&settings_);
    for (int32_t i = 0; i < xu_table_list_count; ++i) {
        const NyXuTable& entry = xu_table_list[i];
        tables_.emplace_back(entry.table, entry.table + entry.count);
    }
}

void LibraryState::restore() const
{
    LIB_NyxusSetConfig(&settings_);
    XU_SetWriteCycleTime(0);
    nyxus_errno = 0;
    nyxus_rv = 0;
    nyxus_h264_standard_order = 0;
    nyxus_fw_bin_size = 0;
    nyxus_mfi_bin_size = 0;
    for (size_t i = 0; i < tables_.size(); ++i)
        std::ranges::copy(tables_[i], xu_table_list[i].table);
}

} // namespace fuzz
