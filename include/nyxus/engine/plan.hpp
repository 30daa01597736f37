// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * What an upgrade will do, step by step, and what that costs. The upgrade itself does what its plan
 * says. Nothing here changes a camera.
 */
#ifndef NYXUS_ENGINE_PLAN_HPP
#define NYXUS_ENGINE_PLAN_HPP

#include <nyxus/engine/images.hpp>

namespace nyxus::engine {

/// How far what the erase of a flash takes, and the images do not replace, is kept.
enum class Keep {
    kFirst64K, ///< all that a controller uses
    kWhole,    ///< the whole part, where the camera can reach it
};
/// For people and programs: "first64k".
NYXUS_ENGINE_API const char* to_text(Keep keep);

/// What is not kept after all.
struct Discard {
    bool mfi = false;      ///< the MFi image
    bool reserved = false; ///< the reserved area
};

struct UpgradeOptions {
    bool always = false; ///< also when the ROM holds the images already
    bool backup = true;  ///< keep what is replaced, unless that is blank
    bool verify = true;  ///< read back and compare
    unsigned wait_s = 5; ///< for a camera that is lost in the middle
    Keep keep = Keep::kFirst64K;
    Discard discard = {};
    std::string operation = "upgrade"; ///< what the journal calls it
};

enum class Action {
    kRead,
    kReadAgain, ///< since it will be the only copy
    kBackUp,
    kUnlock,
    kErase,
    kWriteMfi,
    kWriteFirmware, ///< without its header
    kWriteKept,     ///< what was there before; only the pages of 256 bytes that are not blank
    kWriteHeader,   ///< last: until it is there the ROM holds no firmware
    kLock,
    kReadBack,
    kReadBackMfi,
    kReadBackKept,
    kRestart, ///< of callers who will restart() the camera: no upgrade does
};
/// For people and programs: "write firmware".
NYXUS_ENGINE_API const char* to_text(Action action);

struct Step {
    Action action;
    uint32_t address = 0;
    uint32_t size = 0; ///< bytes; 0 where that means nothing
    Bytes data = {};   ///< that is written or compared; the images', or a part of `before`
};

/// A part of what the ROM holds, by name: "firmware", "MFi image" (4 KiB from 0x6000), "reserved
/// area" (256 bytes from 0x7F00), "other data".
struct Part {
    const char* name;
    uint32_t address = 0;
    uint32_t size = 0;
    Bytes data = {};      ///< of what is kept
    const char* why = ""; ///< of what is not
};
/// "MFi image (312 bytes from 0x6000)", ": " and why.
NYXUS_ENGINE_API std::string to_text(const Part& part);

struct Plan {
    std::vector<Step> steps; ///< in the order in which they are done

    /// Taken by the erase of a flash, and written again. The former firmware is not: it ends at its
    /// first blank page of 256 bytes; at the MFi image, if there is one; and before 0x6000 and
    /// 0x7F00, if the four bytes before are blank. Nothing else tells where firmware ends, so
    /// that what follows it without a gap counts as a part of it, and what of it lies behind a
    /// gap is kept.
    std::vector<Part> kept;
    std::vector<Part> replaced;    ///< firmware, and with an MFi image the former one
    std::vector<Part> lost;        ///< since the image lies there, or on request, or not looked at
    std::vector<Part> unreachable; ///< lost as well
};

/// What an upgrade reads before it begins: 0 for nothing.
NYXUS_ENGINE_API uint32_t bytes_before(const Camera& camera, const UpgradeOptions& options);

/// `before` is what has been read of the ROM from its start; without it nobody knows what is kept.
/// The images and `before` outlive the plan. Nothing blocks.
NYXUS_ENGINE_API Plan plan_upgrade(const Camera& camera, const Images& images,
                                   const UpgradeOptions& options, Bytes before = {});

/// Whether the ROM holds what the plan writes; `before` as above.
NYXUS_ENGINE_API bool is_up_to_date(const Plan& plan, Bytes before);

/// Bytes of the ROM that an upgrade may change and the camera can use.
NYXUS_ENGINE_API uint32_t replaced_bytes(const Camera& camera);
/// Bytes that the erase takes: none of an EEPROM, the first block or the whole part of a flash.
NYXUS_ENGINE_API uint32_t erased_flash_bytes(const Camera& camera);

/// Control transfers, and the pauses between them, counted from how the library talks to a camera.
struct Cost {
    uint32_t transfers = 0;
    double pauses_s = 0;

    Cost& operator+=(const Cost& other)
    {
        transfers += other.transfers;
        pauses_s += other.pauses_s;
        return *this;
    }
    friend Cost operator+(Cost a, const Cost& b) { return a += b; }
};

/// Without the time that the flash takes. Asks the camera whether its ROM is locked, which decides
/// how it can be read: blocks for a transfer a step.
NYXUS_ENGINE_API Cost cost_of(Camera& camera, const Step& step);

/// A part of a register block moves in pieces of 8 bytes: written by one transfer, read by two.
NYXUS_ENGINE_API Cost register_write(size_t bytes);
NYXUS_ENGINE_API Cost register_read(size_t bytes);
/// Reading, changing and writing a register.
NYXUS_ENGINE_API Cost register_change();
/// Setting a pin. Pin 0 has to be made a pin before.
NYXUS_ENGINE_API Cost pin_change(unsigned pin);

/// Reading the external ROM from its start as read_rom() does, as read_rom_twice() does, and a part
/// of it as the library does.
NYXUS_ENGINE_API Cost whole_read(Camera& camera, size_t bytes);
NYXUS_ENGINE_API Cost whole_read_twice(Camera& camera, size_t bytes);
NYXUS_ENGINE_API Cost rom_read(const Camera& camera, size_t bytes);
NYXUS_ENGINE_API Cost rom_write(const Camera& camera, size_t bytes);
NYXUS_ENGINE_API Cost rom_unlock(const Camera& camera);
NYXUS_ENGINE_API Cost rom_lock(const Camera& camera);
NYXUS_ENGINE_API Cost rom_erase(const Camera& camera);
/// Asking what ROM there is.
NYXUS_ENGINE_API Cost rom_query(const Camera& camera);

} // namespace nyxus::engine

#endif
