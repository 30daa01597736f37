// SPDX-License-Identifier: Apache-2.0
#include <nyxus/extensions.h>
#include <nyxus/engine/camera.hpp>

#include "files/users.h"
#include "loan.h"
#include "text/format.h"
#include "text/printable.h"

namespace nyxus::engine {

namespace {

/// DEV_Init()'s answer for a chip that the catalogue lacks.
constexpr int32_t kUnknownChip = 3;
/// With other cameras of this program, each of which is opened within seconds.
constexpr std::chrono::seconds kPatience{60};

Status open_failure(const std::string& camera, const nyxus::Status& status)
{
    const std::string reason = ": " + text::printable(status.message());
    if (status.code() == NYXUS_E_NO_SUPPORT) {
        return {Reason::kNotSupported,
                "cannot open " + camera + reason + "; 'lsusb -v -d 1162:' shows them"};
    }
    if (status.code() == kUnknownChip)
        return {Reason::kNotSupported, "cannot identify " + camera + reason};
    return library_failure("cannot identify " + camera, status.code());
}

/// Only these answers of the probe can mean a blank ROM; the last one is asked for the version that
/// the chip goes by. Whatever else fails says nothing about the ROM.
bool may_be_blank(int32_t status)
{
    return status == NYXUS_E_INVALID || status == NYXUS_E_UNSUPPORTED || status == kUnknownChip;
}

/// Of the library's objects that this thread opens meanwhile.
class EventThread {
public:
    explicit EventThread(Use use) : before_(nyxus_set_event_thread(use == Use::kAnything ? 1 : 0))
    {
    }
    ~EventThread() { nyxus_set_event_thread(before_); }
    EventThread(const EventThread&) = delete;
    EventThread& operator=(const EventThread&) = delete;

private:
    int32_t before_;
};

} // namespace

Status usb_failure(const std::string& doing, int libusb_code, const CameraInfo& info)
{
    Status failure = usb_failure(doing, libusb_code);
    std::string names;
    if (failure.reason() == Reason::kBusy) {
        const std::string node = text::format("/dev/bus/usb/%03u/%03u", info.bus, info.address);
        for (const std::string& user : files::users_of(node))
            names += (names.empty() ? "" : ", ") + user;
    }
    if (names.empty())
        return failure;
    return {Reason::kBusy,
            doing + ": another program uses the camera, " + names + "; close it and try again",
            failure.code()};
}

Camera::Camera(nyxus::Camera camera, Use use, std::shared_ptr<void> loan)
    : nyxus::Camera(std::move(camera)),
      use_(use),
      controls_(device()->xu_table, device()->xu_table + device()->xu_table_count),
      loan_(std::move(loan))
{
    // The next probe corrects the library's table while this camera's thread looks into it.
    device()->xu_table = controls_.data();
}

Result<Camera> Camera::open(const CameraInfo& info, Use use)
{
    const std::string name = "camera " + info.bus_address();
    const auto hold = hold_cameras(kPatience); // the probe uses what belongs to the process
    if (!hold) {
        return Status(Reason::kOther, "cannot open " + name +
                                          ": this program has been opening or closing another "
                                          "camera for a minute");
    }
    const EventThread event_thread(use);
    const auto loan = std::make_shared<Loan>(info);
    const auto lent = [&](nyxus::Camera camera) {
        loan->set_open(camera.device()->usb_handle);
        return Camera(std::move(camera), use, loan);
    };
    auto camera = nyxus::Camera::open(info);
    if (camera)
        return lent(*std::move(camera));
    if (const nyxus::Status claim = can_claim(info); !claim)
        return usb_failure("cannot open " + name, claim.usb_code(), info);
    if (!may_be_blank(camera.status().code()))
        return open_failure(name, camera.status());
    auto blank = open_blank(info);
    if (!blank)
        return open_failure(name, blank.status());
    return lent(*std::move(blank));
}

Camera& Camera::operator=(Camera&& other) noexcept
{
    close();
    nyxus::Camera::operator=(static_cast<nyxus::Camera&&>(other));
    controls_ = std::move(other.controls_);
    loan_ = std::move(other.loan_);
    use_ = other.use_;
    queue_depth = other.queue_depth;
    narrow_queue_proven = other.narrow_queue_proven;
    wide_queue_proven = other.wide_queue_proven;
    wide_path_fails = other.wide_path_fails;
    narrow_echo = other.narrow_echo;
    wide_echo = other.wide_echo;
    return *this;
}

void Camera::close()
{
    if (!loan_)
        return;
    const auto hold = hold_cameras();
    nyxus::Camera::close();
    loan_.reset();
}

Status Camera::require_rom(uint32_t eeprom_bytes)
{
    if (rom_state() != RomState::kUnknown)
        return {};
    if (eeprom_bytes == 0) {
        return {Reason::kUnknownRom,
                name() + " has no firmware in its ROM, and no SPI flash answers"};
    }
    const nyxus::Status set = assume_eeprom(eeprom_bytes);
    return set ? Status() : library_failure("cannot set the type of the ROM", set.code());
}

std::string Camera::chip() const
{
    return text::printable(nyxus::Camera::chip());
}

std::string Camera::name() const
{
    const std::string serial = text::printable(info().serial);
    return "camera " + info().bus_address() + " (" + chip() +
           (serial.empty() ? "" : ", serial " + serial) + ")";
}

std::string Camera::firmware_sentence() const
{
    if (runs_external_firmware())
        return "runs external firmware " + version();
    if (rom_state() != RomState::kFirmware)
        return "runs its mask ROM; the external ROM holds no firmware for this chip";
    return "runs its mask ROM";
}

std::string Camera::version() const
{
    return runs_external_firmware() ? text::format("0x%04X", firmware_version()) : "mask ROM";
}

std::string Camera::running() const
{
    return runs_external_firmware() ? version() + text::format(" 0x%04X", device()->wExtSensorApId)
                                    : "";
}

} // namespace nyxus::engine
