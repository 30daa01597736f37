// SPDX-License-Identifier: Apache-2.0
// The part of a node that is about the kernel's own driver of the camera.
#include "bus/usbfs.h"

#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <cerrno>
#include <string_view>
#include <utility>

namespace sim {

// uvcvideo is offered the control interface, and takes the other one of its own accord.
bool UsbfsNode::bind_driver(uint32_t interface)
{
    const std::lock_guard lock(camera_->mutex());
    if (!has_driver_ || interface != kControlInterface)
        return false;
    driver_has_[kControlInterface] = true;
    driver_has_[kVideoInterface] = owners_[kVideoInterface] == nullptr;
    return true;
}

// Without the control interface it lets go of the other one, too.
bool UsbfsNode::unbind_driver(uint32_t interface)
{
    if (interface >= kInterfaceCount)
        return false;
    if (interface == kControlInterface)
        driver_has_[kVideoInterface] = false;
    return std::exchange(driver_has_[interface], false);
}

void UsbfsNode::add_driver()
{
    has_driver_ = true;
    (void)bind_driver(kControlInterface);
}

int UsbfsFile::driver_request(uint32_t interface, uint32_t code)
{
    if (interface >= kInterfaceCount)
        return -EINVAL;
    switch (code) {
        case USBDEVFS_DISCONNECT:
            return node_->unbind_driver(interface) ? 0 : -ENODATA;
        case USBDEVFS_CONNECT: // 1: a driver has taken it
            if (node_->owners_[interface] != nullptr || node_->driver_has_[interface])
                return -EBUSY;
            return node_->bind_driver(interface) ? 1 : 0;
        default:
            return -ENOTTY;
    }
}

Reply UsbfsFile::driver_name(uint32_t interface) const
{
    Reply reply;
    if (interface < kInterfaceCount) {
        const bool is_claimed = node_->owners_[interface] != nullptr;
        const std::string_view name = node_->driver_has_[interface] ? "uvcvideo"
                                      : is_claimed                  ? "usbfs"
                                                                    : "";
        reply.payload.assign(name.begin(), name.end());
    }
    if (reply.payload.empty())
        reply.header.result = -ENODATA;
    return reply;
}

} // namespace sim
