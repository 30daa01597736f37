// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "camera_list.h"
#include "files/descriptor.h"

#include <filesystem>
#include <mutex>
#include <vector>

/// The kernel's video driver lends its cameras to the program. It gets them back when they are
/// closed; also when an interrupt or the program's patience ends it in the middle. After a death
/// that cannot be caught, a file in the state folder tells the next start.
namespace tool::kernel_driver {

/// A camera that the program is about to claim, until it has been closed.
class Loan {
public:
    /// Writes the file, where the kernel's driver has the camera. Does without where it cannot.
    explicit Loan(const CameraEntry& entry);
    /// Removes it.
    ~Loan();
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;

private:
    std::filesystem::path file_; ///< empty: nothing is lent
    files::Descriptor lock_;     ///< held, which tells the file from one that was left behind
};

/// Nobody gives the camera back meanwhile: it is being opened or closed.
std::unique_lock<std::timed_mutex> hold();
/// What give_back() lets go of; nullptr for nothing. Under hold().
void set_open(libusb_device_handle* handle);

/// Lets go of the open camera, whatever another thread does with it: the program ends now.
void give_back();

/// What programs that were killed have left without its driver is put back; a line for each, to be
/// shown.
std::vector<std::string> put_back_what_was_left();

} // namespace tool::kernel_driver
