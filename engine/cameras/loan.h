// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <chrono>
#include <filesystem>
#include <mutex>
#include <nyxus/cpp/camera_list.hpp>

#include "files/descriptor.h"

namespace nyxus::engine {

/// Nobody opens, closes or gives back a camera meanwhile. Not held when the time is over.
std::unique_lock<std::timed_mutex> hold_cameras(std::chrono::seconds patience);
std::unique_lock<std::timed_mutex> hold_cameras();

/// A camera of the kernel's driver that is about to be claimed, until it has been closed. Both
/// ends, and what is between, under hold_cameras().
class Loan {
public:
    /// Writes the file, where the kernel's driver has the camera. Does without where it cannot.
    explicit Loan(const CameraInfo& camera);
    /// Removes it.
    ~Loan();
    Loan(const Loan&) = delete;
    Loan& operator=(const Loan&) = delete;

    /// What give_back() lets go of; give_cameras_back() asks it of all that are open.
    void set_open(libusb_device_handle* handle);
    void give_back() const;

private:
    void forget() const;

    bool is_lent_ = false;
    std::filesystem::path file_; ///< empty: nothing is remembered
    files::Descriptor lock_;     ///< held, which tells the file from one that was left behind
    libusb_device_handle* handle_ = nullptr;
};

} // namespace nyxus::engine
