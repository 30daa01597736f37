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

struct UpgradeOptions {
    bool always = false;               ///< also when the ROM holds the images already
    bool backup = true;                ///< keep what is replaced, unless that is blank
    bool verify = true;                ///< read back and compare
    unsigned wait_s = 5;               ///< for a camera that is lost in the middle
    std::string operation = "upgrade"; ///< what the journal calls it
};

enum class Action {
    kBackUp,
    kUnlock,
    kErase,
    kWriteMfi,
    kWriteFirmware, ///< the header last: until it is there the ROM holds no firmware
    kLock,
    kReadBack,
    kReadBackMfi,
    kRestart, ///< of callers who will restart() the camera: no upgrade does
};
/// For people and programs: "write firmware".
NYXUS_ENGINE_API const char* to_text(Action action);

struct Step {
    Action action;
    uint32_t address = 0;
    uint32_t size = 0; ///< bytes; 0 where that means nothing
    Bytes data = {};   ///< that is written or compared; the images'
};

/// What becomes of the flash's reserved area, 256 bytes from 0x7F00.
enum class ReservedArea { kKept, kErased, kErasedIfUsed };

struct Plan {
    std::vector<Step> steps; ///< in the order in which they are done
    ReservedArea reserved_area = ReservedArea::kKept;
};

/// `before` is what has been read of the ROM from its start, perhaps nothing. The images outlive
/// the plan. Nothing blocks.
NYXUS_ENGINE_API Plan plan_upgrade(const Camera& camera, const Images& images,
                                   const UpgradeOptions& options, Bytes before = {});

/// Whether the ROM holds what the plan writes; `before` as above.
NYXUS_ENGINE_API bool is_up_to_date(const Plan& plan, Bytes before);

/// Bytes of the ROM that an upgrade may change and the camera can use.
NYXUS_ENGINE_API uint32_t replaced_bytes(const Camera& camera);

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

/// Reading a part of the external ROM as read_rom() does, and as the library does.
NYXUS_ENGINE_API Cost whole_read(Camera& camera, size_t bytes);
NYXUS_ENGINE_API Cost rom_read(const Camera& camera, size_t bytes);
NYXUS_ENGINE_API Cost rom_write(const Camera& camera, size_t bytes);
NYXUS_ENGINE_API Cost rom_unlock(const Camera& camera);
NYXUS_ENGINE_API Cost rom_lock(const Camera& camera);
NYXUS_ENGINE_API Cost rom_erase(const Camera& camera);
/// Asking what ROM there is.
NYXUS_ENGINE_API Cost rom_query(const Camera& camera);

} // namespace nyxus::engine

#endif
