// SPDX-License-Identifier: Apache-2.0
#include "system/error_catalogue.h"

#include "terminal/exit_codes.h"

#include <libusb-1.0/libusb.h>
#include <libuvc/libuvc.h>
#include <nyxus/error.h>
#include <nyxus/fingerprint.h>
#include <cerrno>

namespace tool {

namespace {

// clang-format off
constexpr Explained kLibraryStatuses[] = {
    {NYXUS_OK, "NYXUS_OK",
     "Success.",
     "",
     "Nothing is to be done. Older messages stay in nyxus_errmsg: look at it only after a failure."},

    {3, "unknown chip",
     "MP_QueryChipInfo() and DEV_Init() read the version of the chip's own firmware and found no known signature in it.",
     "The device is a camera of another family, or a chip newer than this library.",
     "DEV_CreateObjectUsb() returns NULL then and leaves nyxus_errno as it was. 'nyxus info' tells what the chip says."},
    {SG_EEPROM_BAD_END, "SG_EEPROM_BAD_END",
     "SG_EepromRead() and SG_EepromWrite() refuse a range that ends beyond 0x8000. Nothing was sent.",
     "Address plus length is too large.",
     "Keep the range within 0x2400 to 0x7FFF. Compare results with 0, not with 'negative': this one is positive."},
    {SG_EEPROM_BAD_START, "SG_EEPROM_BAD_START",
     "SG_EepromRead() and SG_EepromWrite() refuse a range that starts outside 0x2400 to 0x7FFF. Nothing was sent.",
     "The address lies in the firmware's part of the EEPROM, or behind its end.",
     "Keep the range within 0x2400 to 0x7FFF. Compare results with 0, not with 'negative': this one is positive."},

    {NYXUS_E_FAILED, "NYXUS_E_FAILED",
     "A composite operation did not succeed. The function that returned it says what that means.",
     "MP_FwCompare(): the contents differ. MP_MatchFlash(): no row has this ID. XU_I2cGet(), XU_I2cSet(): a NULL buffer. "
     "XU_SpiGetReservedArea(), XU_SpiSetReservedArea(): more than 256 bytes, or no SPI flash. XU_MjpgQGainSet(): a gain "
     "that is not 1 to 63, or 32. SG_SetAutoPower(), SG_LedControl(): neither 0 nor 1.",
     "Check the arguments against the header. Do not print nyxus_errmsg: it belongs to an earlier failure."},
    {NYXUS_E_SPI_COMMAND, "NYXUS_E_SPI_COMMAND",
     "XU_SpiCmdGet() waited 500 ms for the answer to a flash command.",
     "The flash is damaged or not soldered, or the controller is stuck in an earlier command.",
     "Power-cycle the camera and try again."},
    {NYXUS_E_BUSY, "NYXUS_E_BUSY",
     "A wait for the flash ran out of attempts, or an earlier update of an LED is pending.",
     "XU_SpiWaitStatus(), XU_SpiWaitBusReady() and what calls them: the flash is slow, worn out or write-protected. "
     "XU_LedStatusGet(), XU_LedStatusSet(): the firmware has not taken the last update up yet.",
     "LED: try again after some 20 ms. Flash: run the operation again; after an erase or upgrade the ROM is incomplete, so "
     "upgrade again before the camera is restarted."},
    {NYXUS_E_NO_SUPPORT, "NYXUS_E_NO_SUPPORT",
     "MP_IdentifyEeprom() always returns this: an I2C EEPROM has nothing that could be asked.",
     "The function was called.",
     "Take the size from the ROM's header (MP_QueryExtRom()) or from the board's data sheet ('nyxus upgrade --eeprom')."},

    {NYXUS_E_LIB_NULL, "NYXUS_E_LIB_NULL",
     "A pointer argument of a library-wide call is NULL: LIB_Nyxus...() or HexStr2Buf().",
     "A mistake in the calling program.",
     "The message names the argument.",
     {"'version' cannot be NULL", "'config' cannot be NULL", "'str' cannot be NULL", "'buf' cannot be NULL"}},
    {NYXUS_E_INI_DIGIT, "NYXUS_E_INI_DIGIT",
     "check_base_char() found a character in a serial-number field that is no digit.",
     "A letter in a decimal field, or a blank or a sign in either kind.",
     "The message names the field's text. Hexadecimal fields take 0 to 9, a to f and A to F.",
     {"contains non-hexdecimal character", "contains non-decimal character"}},
    {NYXUS_E_BIN_NULL, "NYXUS_E_BIN_NULL",
     "A pointer argument of an image call is NULL: MP_Bin...() or MP_FwLoad().",
     "A mistake in the calling program, often a file name that was not given.",
     "The message names the argument.",
     {"'bin' cannot be NULL", "'buf' cannot be NULL", "'path' cannot be NULL", "'mfi_bin' cannot be NULL", "'sn' cannot be NULL"}},
    {NYXUS_E_BIN_SIZE, "NYXUS_E_BIN_SIZE",
     "An image file is larger than its buffer.",
     "The file is no firmware image (32,768 bytes at most), or a dump of a whole flash.",
     "Choose the right file. MP_FwLoad() returns 0 all the same: set nyxus_errno to 0 before it and look at it afterwards.",
     {"BIN file_size > bin_size, buffer too small"}},

    {NYXUS_E_DEVICE_NULL, "NYXUS_E_DEVICE_NULL",
     "The device object is NULL.",
     "DEV_CreateObjectUsb() failed before, and its result was not looked at.",
     "Check the result of DEV_CreateObjectUsb(); nyxus_errmsg tells why it failed.",
     {"'pDevObj' cannot be NULL"}},
    {NYXUS_E_MISMATCH, "NYXUS_E_MISMATCH",
     "Two things that have to match do not. Nothing was sent or written.",
     "\"Firmware signature not match\": the image is for another chip; its characters at 0x40 differ from the chip's. "
     "\"Driver type not match\": nyxus_driver_type is not 1.",
     "Use an image that was made for this chip ('nyxus info' names it), or set nyxus_driver_type to 1.",
     {"Driver type not match", "Firmware signature not match"}},
    {NYXUS_E_UNSUPPORTED, "NYXUS_E_UNSUPPORTED",
     "MP_IdentifyFlash() knows no such command to read a flash's ID.",
     "oFlashInfo.bCmdRDID was set by hand, to something else than 0x9F, 0x15, 0xAB or 0x90.",
     "Set it to 0x9F, which most flash parts answer.",
     {"Command Read ID is not support"}},
    {NYXUS_E_INVALID, "NYXUS_E_INVALID",
     "A control or a command does not exist here. Nothing was sent.",
     "\"Invalid XU selector\": this camera's firmware lacks the control. \"Invalid H.264 selector\": there is none of this "
     "number. \"Command Read ID is invalid\": the external ROM is blank or damaged, and nobody has said how to read its flash's ID.",
     "Blank ROM: set oFlashInfo.bCmdRDID to 0x9F and call DEV_Init(), or use 'nyxus upgrade' or 'nyxus recover', which do "
     "so. Missing control: the camera's firmware is too old, or its model has no such feature.",
     {"Invalid XU selector", "Invalid H.264 selector", "Command Read ID is invalid"}},
    {NYXUS_E_TIMEOUT, "NYXUS_E_TIMEOUT",
     "The flash did not confirm its block protection in six attempts.",
     "The flash's WP pin is wired to ground, the part protects itself by other status bits, or it is not answering.",
     "Check the WP pin. If this was the lock at the end of an erase, the erase itself is complete.",
     {"Issue SPI block protect timed out"}},
    {NYXUS_E_NO_MEMORY, "NYXUS_E_NO_MEMORY",
     "There was no memory for a device object, or for the blocks of XU_ExtRomEraseDWORD().",
     "The process or the machine is out of memory.",
     "Free some and try again.",
     {"Device object malloc FAILED", "Erase buffer malloc FAILED"}},
    {NYXUS_E_RANGE, "NYXUS_E_RANGE",
     "An argument is out of range, or a pointer other than the device is NULL. Nothing was sent.",
     "A mistake in the calling program, or an image of an impossible size (MP_FwUpgrade() takes 0x42 to 32,768 bytes).",
     "The message names the argument; its header tells the range.",
     {"GPIO index out of range", "Firmware image size out of range", "Dump size out of range", "cannot be NULL",
      "standard control", "has no control", "ranges from", "the stream has a callback"}},
};

constexpr Explained kLibusbCodes[] = {
    {LIBUSB_ERROR_IO, "LIBUSB_ERROR_IO",
     "The transfer broke on the wire.",
     "A bad cable, hub or port, too little power, or a camera that is restarting.",
     "Try again; change cable and port; leave hubs out. After an upgrade that broke off, run it again."},
    {LIBUSB_ERROR_INVALID_PARAM, "LIBUSB_ERROR_INVALID_PARAM",
     "libusb refused the arguments, and sent nothing.",
     "A request of more bytes than a control transfer can have.",
     "Check the length. Otherwise please report it."},
    {LIBUSB_ERROR_ACCESS, "LIBUSB_ERROR_ACCESS",
     "You may not open the camera's device node.",
     "The udev rule is missing, or the camera was plugged in before it was installed.",
     "Install packaging/udev/70-nyxus.rules and plug the camera in again, or run as root."},
    {LIBUSB_ERROR_NO_DEVICE, "LIBUSB_ERROR_NO_DEVICE",
     "The camera is gone.",
     "It was unplugged, lost its power, or restarted; or the object has no open handle.",
     "Delete the object. When the camera is back, look for it anew: it has another address."},
    {LIBUSB_ERROR_NOT_FOUND, "LIBUSB_ERROR_NOT_FOUND",
     "The camera has no interface 0, or is gone already.",
     "The camera is just leaving, or the device is no camera.",
     "Look for the camera anew."},
    {LIBUSB_ERROR_BUSY, "LIBUSB_ERROR_BUSY",
     "Somebody else uses the camera's interface 0.",
     "Another program has the camera open. The kernel's driver is no cause: it is detached.",
     "Close the other program. 'sudo fuser -v /dev/bus/usb/BUS/ADDRESS' names it."},
    {LIBUSB_ERROR_TIMEOUT, "LIBUSB_ERROR_TIMEOUT",
     "The transfer was given up before it was complete.",
     "The library sets no limit of its own, so the host did.",
     "Unplug the camera, plug it in again, and try again."},
    {LIBUSB_ERROR_OVERFLOW, "LIBUSB_ERROR_OVERFLOW",
     "The camera sent more than was asked for.",
     "A fault of the camera's firmware, or of the wire.",
     "Try another cable. If it happens always, upgrade the firmware."},
    {LIBUSB_ERROR_PIPE, "LIBUSB_ERROR_PIPE",
     "The camera refused the request (it stalled).",
     "Its firmware does not know the control, or not this request to it; or it cannot serve it now. While a camera is "
     "probed one refusal is normal: older firmware has no version record, and the library goes on.",
     "Upgrade the firmware, or do without the feature. H.264: try the other order of the query "
     "(nyxus_h264_standard_order, 'nyxus h264 --published-order')."},
    {LIBUSB_ERROR_INTERRUPTED, "LIBUSB_ERROR_INTERRUPTED",
     "A system call was interrupted.",
     "A signal arrived at an awkward moment.",
     "Try again."},
    {LIBUSB_ERROR_NO_MEM, "LIBUSB_ERROR_NO_MEM",
     "There is no memory for the transfer.",
     "The process is out of memory, or the kernel's limit for USB transfers (usbfs_memory_mb, 16 MiB) is used up by streams.",
     "Close other streams, or raise the limit: 'echo 64 | sudo tee /sys/module/usbcore/parameters/usbfs_memory_mb'."},
    {LIBUSB_ERROR_NOT_SUPPORTED, "LIBUSB_ERROR_NOT_SUPPORTED",
     "The machine cannot do this with a USB device.",
     "The kernel or the container lacks usbfs, or its driver cannot be detached.",
     "Check that /dev/bus/usb exists where the program runs."},
    {LIBUSB_ERROR_OTHER, "LIBUSB_ERROR_OTHER",
     "Something that libusb has no better name for.",
     "The kernel answered with an unexpected error.",
     "Run with LIBUSB_DEBUG=4 in the environment, which prints what the kernel said."},
};

constexpr Explained kLibuvcCodes[] = {
    {UVC_ERROR_INVALID_DEVICE, "UVC_ERROR_INVALID_DEVICE",
     "The device is no usable video camera.",
     "Its video descriptors cannot be read.",
     "Plug the camera in again; 'lsusb -v' shows its descriptors."},
    {UVC_ERROR_INVALID_MODE, "UVC_ERROR_INVALID_MODE",
     "The camera offers no stream of this format, size and rate.",
     "A format, width, height or rate that it does not have; or it offers the stream in a way that cannot work.",
     "Choose a size that it lists ('lsusb -v'); 0 frames per second takes the first rate."},
    {UVC_ERROR_CALLBACK_EXISTS, "UVC_ERROR_CALLBACK_EXISTS",
     "The stream has a callback already, so single frames cannot be taken.",
     "startVideoStream() was called before.",
     "Call stopVideoStream() first."},
    {UVC_ERROR_OTHER, "UVC_ERROR_OTHER",
     "Something that libuvc has no better name for.",
     "Most often memory, or a thread that cannot be made.",
     "Look at what libuvc prints on standard error."},
};

constexpr Explained kSystemErrors[] = {
    {ENOENT, "ENOENT", "The file does not exist.",
     "A misspelt name, or a folder of the path is missing.",
     "Check the name; relative names start at the current folder.",
     {"Open bin file"}},
    {EACCES, "EACCES", "You may not read or write the file.",
     "The permissions of the file, or of a folder above it. MP_FwCompare() writes dump.bin to the current folder.",
     "Change the permissions, or work in a folder of your own.",
     {"Open bin file"}},
    {EISDIR, "EISDIR", "The name is a folder, not a file.",
     "A forgotten file name.",
     "Give the name of the file.",
     {"Read bin file"}},
    {ENOSPC, "ENOSPC", "The disk is full.",
     "Backups and dumps add up, and nothing removes them.",
     "Free some space. The file is incomplete: write it again."},
    {EROFS, "EROFS", "The file system can only be read.",
     "A live system or a container. MP_FwCompare() writes dump.bin to the current folder.",
     "Work in a folder that can be written."},
    {EMFILE, "EMFILE", "The process has too many files open.",
     "A loop that loads files or opens cameras without closing them.",
     "'ulimit -n' shows the limit."},
    {EIO, "EIO", "The disk, or the file system below, failed.",
     "A broken disk or a network share that is gone.",
     "'dmesg' tells more. Copy the file elsewhere.",
     {"Read bin file"}},
};

constexpr Explained kExitCodes[] = {
    {kExitOk, "success", "The command did what it should.", "", ""},
    {kExitFailure, "other failure", "Something failed that has no code of its own.",
     "A file cannot be read or written, or a USB transfer broke.",
     "Read the line on standard error; 'nyxus explain' explains the status at its end."},
    {kExitUsage, "wrong usage", "The command line is wrong. Nothing was changed.",
     "A misspelt command or option, a value out of range.",
     "'nyxus COMMAND --help' shows what it takes."},
    {kExitNoCamera, "no such camera", "No camera is connected, or none that '--camera' matches.",
     "Cable, power, or an address from before the camera restarted.",
     "'nyxus list' shows what is there, 'lsusb -d 1162:' what the kernel sees. The port path stays when a camera restarts."},
    {kExitAmbiguous, "more than one camera matches", "Several cameras are meant; nothing was done.",
     "Several are connected and there is no '--camera', or two have the same serial number.",
     "Choose one: 'nyxus list', then '-c' with its serial number or port."},
    {kExitPermission, "no permission", "You may not open the camera.",
     "The udev rule is missing, or the camera was plugged in before it was installed.",
     "Install packaging/udev/70-nyxus.rules and plug the camera in again, or run as root."},
    {kExitBusy, "camera is busy", "Another program has the camera open.",
     "A viewer, another 'nyxus', a service.",
     "Close it. 'sudo fuser -v /dev/bus/usb/BUS/ADDRESS' names it."},
    {kExitImageRefused, "image refused", "The image cannot be right for this camera. Nothing was written.",
     "A wrong file: empty, too large, for another chip, or not made for the SPI flash that is there. "
     "Where a key is trusted: one that no signed manifest names.",
     "The line says which check failed. 'nyxus info' names the chip."},
    {kExitMismatch, "contents differ", "What was read is not what was expected.",
     "'compare': another firmware. After a write: worn-out or protected memory, or a bad connection.",
     "After an upgrade run it again before you restart the camera; 'nyxus recover' brings the backup back."},
    {kExitProtected, "write-protected", "The ROM is locked.",
     "The flash's WP pin is wired to ground.",
     "Check the pin."},
    {kExitTimeout, "time-out", "The camera or its flash took too long.",
     "A flash that stays busy, a camera that is silent for longer than '--patience', or that does not come back after a "
     "restart within '--wait'.",
     "Unplug the camera and plug it in again. When the ROM was being written, upgrade again."},
    {kExitCameraLost, "camera lost", "The camera went away in the middle.",
     "It was unplugged, or lost its power.",
     "Plug it in again. The last line says what state the ROM is in; 'nyxus recover' brings the backup back."},
    {kExitNotSupported, "not supported by this camera", "The camera cannot do this.",
     "Its firmware lacks the control, its ROM is an EEPROM (no erase), or its chip is unknown.",
     "'nyxus info' shows what the camera has."},
    {kExitNotConfirmed, "not confirmed", "Nobody said yes. Nothing was changed.",
     "'erase' without '--yes' where nobody can be asked, 'recover' of a camera that runs fine, or an older version than the camera runs.",
     "'--yes', '--force' and '--allow-downgrade' confirm."},
    {kExitNotStarted, "not started", "The camera has restarted, but does not run the firmware that its ROM should hold.",
     "The ROM is blank or its firmware broken, so that the one in the chip runs; or it still holds another version than the "
     "one that was programmed.",
     "'nyxus upgrade' installs an image, 'nyxus recover' a backup. After 'nyxus erase' it is what you wanted."},
    {kExitUncertainBackup, "more than one backup may be meant", "It is not certain which backup is the camera's. Nothing was changed.",
     "A camera without a serial number, or with one that others have as well, or that has changed; a backup of an earlier "
     "version.",
     "Choose one of the list: 'nyxus recover FILE'. 'nyxus backups show NAME' tells what is known of it."},
    {kExitInterrupted, "interrupted", "You stopped it, with Ctrl-C or SIGTERM.",
     "",
     "The last line says what state the ROM is in, and what to run."},
};
// clang-format on

constexpr OwnMessage kOwnMessages[] = {
#include "own_messages.inc" // made by own_messages.sh
    {kExitUsage, "; see 'nyxus"},
};

} // namespace

const std::span<const Explained> library_statuses = kLibraryStatuses;
const std::span<const Explained> libusb_codes = kLibusbCodes;
const std::span<const Explained> libuvc_codes = kLibuvcCodes;
const std::span<const Explained> system_errors = kSystemErrors;
const std::span<const Explained> exit_codes = kExitCodes;
const std::span<const OwnMessage> own_messages = kOwnMessages;

} // namespace tool
