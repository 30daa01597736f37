// SPDX-License-Identifier: Apache-2.0
#include "system/doctor_checks.h"

#include "command_line/versions.h"
#include "files/users.h"
#include "session/camera_list.h"
#include "terminal/failure.h"
#include "terminal/text.h"

#include <sys/stat.h>
#include <unistd.h>
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nyxus/engine/backups.hpp>

namespace tool {

namespace {

namespace fs = std::filesystem;
using State = Finding::State;

constexpr char kVendorDigits[] = "1162";

bool is_simulated()
{
    return std::getenv("NYXUS_SIM_SOCKET") != nullptr;
}

bool names_the_cameras(const fs::path& rules)
{
    std::ifstream file(rules);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    return text.find(kVendorDigits) != std::string::npos;
}

/// The udev rules file that is about these cameras; "" when there is none.
std::string find_udev_rule()
{
    for (const char* folder :
         {"/etc/udev/rules.d", "/run/udev/rules.d", "/usr/local/lib/udev/rules.d",
          "/usr/lib/udev/rules.d", "/lib/udev/rules.d"}) {
        std::error_code none;
        for (const fs::directory_entry& entry : fs::directory_iterator(folder, none)) {
            if (entry.path().extension() == ".rules" && names_the_cameras(entry.path()))
                return entry.path().string();
        }
    }
    return "";
}

std::string node_of(const CameraEntry& entry)
{
    return format("/dev/bus/usb/%03u/%03u", entry.bus, entry.address);
}

/// "/dev/bus/usb/001/005 (owner 0, group 0, mode 664)"
std::string node_text(const CameraEntry& entry)
{
    const std::string path = node_of(entry);
    struct stat status {};
    if (stat(path.c_str(), &status) != 0)
        return path + " (missing)";
    return path + format(" (owner %u, group %u, mode %03o)", status.st_uid, status.st_gid,
                         status.st_mode & 0777U);
}

Finding problem(const std::string& check, const Failure& failure)
{
    const std::string& text = failure.text(); // "reason; what to do"
    const size_t advice = text.find("; ");
    return {check, State::kProblem, text.substr(0, advice),
            advice == std::string::npos ? "" : text.substr(advice + 2), failure.code()};
}

/// Whether it is claimed, by anybody but the kernel's own driver.
bool is_claimed(const CameraEntry& entry)
{
    libusb_device_handle* raw = nullptr;
    if (libusb_open(entry.device.get(), &raw) != 0)
        return false;
    const std::unique_ptr<libusb_device_handle, decltype(&libusb_close)> handle(raw, libusb_close);
    if (libusb_kernel_driver_active(raw, 0) == 1)
        return false;
    const int claimed = libusb_claim_interface(raw, 0);
    libusb_release_interface(raw, 0);
    return claimed == LIBUSB_ERROR_BUSY;
}

/// Whether somebody has the camera. Asks the kernel only, and takes nothing away from anybody.
Finding check_user(const std::string& check, const CameraEntry& entry)
{
    libusb_device_handle* raw = nullptr;
    const int opened = libusb_open(entry.device.get(), &raw);
    if (opened != 0)
        return problem(check, usb_failure(node_text(entry) + " cannot be opened", opened));
    const std::unique_ptr<libusb_device_handle, decltype(&libusb_close)> handle(raw, libusb_close);
    const std::string who = entry.product + (entry.serial.empty() ? "" : ", " + entry.serial);
    std::string state = ": can be opened, and nobody else has it";
    if (libusb_kernel_driver_active(raw, 0) == 1) {
        state =
            ": can be opened; the kernel's video driver has it, and lends it to nyxus while a "
            "command runs";
    } else if (const int claimed = libusb_claim_interface(raw, 0); claimed != 0) {
        return problem(check,
                       failure_of(engine::usb_failure(who + " cannot be used", claimed, entry)));
    }
    libusb_release_interface(raw, 0);
    return {check, State::kOk, who + state};
}

/// What the journal says of its ROM, where that needs care.
std::optional<Finding> check_rom(const std::string& check, const CameraEntry& entry)
{
    const nyxus::engine::RomHistory history = nyxus::engine::Backups().history(entry);
    if (!history.needs_care())
        return std::nullopt;
    const std::string backup =
        history.backup.empty() ? "" : " (" + in_quotes(history.backup) + " was there before)";
    return Finding{.check = check,
                   .state = history.certain ? State::kProblem : State::kWarning,
                   .what = printable(history.sentence()),
                   .remedy = "run the upgrade again, or 'nyxus recover'" + backup,
                   .code = kExitFailure};
}

} // namespace

std::string users_of(const CameraEntry& entry)
{
    std::string names;
    for (const std::string& user : files::users_of(node_of(entry)))
        names += (names.empty() ? "" : ", ") + user;
    return names.empty() && is_claimed(entry) ? "another program" : names;
}

const char* state_name(State state)
{
    constexpr const char* kNames[] = {"ok", "note", "warning", "problem"};
    return kNames[static_cast<size_t>(state)];
}

Finding check_libraries()
{
    std::string text;
    for (const LibraryVersion& library : library_versions())
        text += std::string(text.empty() ? "" : ", ") + library.name + " " + library.version;
    return {"libraries", State::kOk, text};
}

Finding check_bus()
{
    if (is_simulated())
        return {"bus", State::kNote, "simulated cameras (nyxus-sim), not the machine's own"};
    std::error_code none;
    if (!fs::is_directory("/dev/bus/usb", none)) {
        return {"bus", State::kProblem, "there is no /dev/bus/usb",
                "a container needs '--device /dev/bus/usb', a virtual machine a USB controller; "
                "or try 'nyxus-sim run -- nyxus info'",
                kExitNoCamera};
    }
    return {"bus", State::kOk, "this machine's USB"};
}

Finding check_udev_rule()
{
    if (const std::string file = find_udev_rule(); !file.empty())
        return {"udev rule", State::kOk, file};
    if (is_simulated() || geteuid() == 0) {
        return {"udev rule", State::kNote,
                is_simulated() ? "not installed; simulated cameras need none"
                               : "not installed; root needs none"};
    }
    return {"udev rule", State::kWarning, "not installed, so that only root may open cameras",
            "sudo cp packaging/udev/70-nyxus.rules /etc/udev/rules.d/ && sudo udevadm "
            "control --reload, then plug the camera in again"};
}

Finding check_usb_memory()
{
    uint64_t limit_mib = 0;
    std::ifstream("/sys/module/usbcore/parameters/usbfs_memory_mb") >> limit_mib;
    return {
        "USB memory", State::kOk,
        limit_mib == 0 ? "no limit" : std::to_string(limit_mib) + " MiB for all programs together"};
}

std::vector<Finding> check_cameras(const std::string& choice)
{
    std::vector<Finding> findings;
    for (const CameraEntry& entry : list_cameras()) {
        if (!choice.empty() && !entry.matches(choice))
            continue;
        const std::string check = "camera " + entry.bus_address();
        findings.push_back(check_user(check, entry));
        if (auto finding = check_rom(check, entry))
            findings.push_back(*std::move(finding));
    }
    if (findings.empty()) {
        findings.push_back(
            {"camera", State::kProblem,
             choice.empty() ? "none is connected" : "none is called " + in_quotes(choice),
             "check that it is plugged in and has power; 'lsusb -d 1162:' "
             "shows it then",
             kExitNoCamera});
    }
    return findings;
}

} // namespace tool
