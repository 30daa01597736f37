// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * Plain access to the external ROM: read, erase, the flash's reserved area. Upgrades with all their
 * safeties are the engine's (nyxus/engine.hpp).
 */
#ifndef NYXUS_CPP_ROM_HPP
#define NYXUS_CPP_ROM_HPP

#include <nyxus/production.h>
#include <nyxus/rom.h>
#include <nyxus/cpp/camera.hpp>

#include <algorithm>
#include <array>
#include <functional>
#include <iterator>
#include <vector>

namespace nyxus {

/// Called on the caller's thread as bytes go by, at first with 0 of them.
using ReadProgress = std::function<void(uint32_t done, uint32_t total)>;

/// The external ROM of a camera, which it must not outlive. Everything here blocks for up to a
/// minute; a camera that is connected but does not answer is waited for without a limit.
class Rom {
public:
    explicit Rom(Camera& camera) : camera_(camera.device()) {}

    /// Bytes that the controller uses.
    uint32_t size() const { return camera_->dwExtRomSize; }

    /// Reads from the first 64 KiB, which are all that the controller uses; NYXUS_E_RANGE beyond.
    Status read(uint32_t address, Span<uint8_t> bytes, const ReadProgress& progress = {})
    {
        constexpr uint32_t kSlice = 256; // transfers of up to 511 bytes print no marks
        constexpr size_t kReadable = 0x10000;
        if (address > kReadable || bytes.size() > kReadable - address)
            return {NYXUS_E_RANGE, "only the first 64 KiB of the ROM can be read"};
        const auto total = static_cast<uint32_t>(bytes.size());
        for (uint32_t done = 0;;) {
            if (progress)
                progress(done, total);
            if (done == total)
                return {};
            const uint32_t slice = std::min(kSlice, total - done);
            const int32_t rv = XuExtRomRead(camera_, address + done, slice, bytes.data() + done);
            if (rv < 0)
                return Status::of(rv);
            done += slice;
        }
    }
    /// Reads all that the controller uses, or its first bytes.
    Result<std::vector<uint8_t>> dump(const ReadProgress& progress = {})
    {
        return dump(size(), progress);
    }
    Result<std::vector<uint8_t>> dump(uint32_t size_bytes, const ReadProgress& progress = {})
    {
        std::vector<uint8_t> bytes(size_bytes);
        Status status = read(0, bytes, progress);
        if (!status)
            return status;
        return bytes;
    }

    /// Erases an SPI flash; the camera runs the firmware in its chip after the next restart. An
    /// EEPROM cannot be erased: NYXUS_E_NO_SUPPORT.
    Status erase()
    {
        if (camera_->xSpiMode == 0)
            return {NYXUS_E_NO_SUPPORT, "an EEPROM cannot be erased"};
        return Status::of(MP_FwErase(camera_));
    }

    /// Reads the reserved area of the flash, 256 bytes.
    Result<std::array<uint8_t, 256>> read_reserved()
    {
        std::array<uint8_t, 256> bytes{};
        const int32_t status = XU_SpiGetReservedArea(camera_, 256, bytes.data());
        return Result<std::array<uint8_t, 256>>::of(status, bytes);
    }
    /// Programs its first bytes. Nothing is erased: only bits that are 1 can become 0.
    Status write_reserved(Bytes bytes)
    {
        if (bytes.size() > 256)
            return {NYXUS_E_RANGE, "the reserved area has 256 bytes"};
        return Status::of(
            XU_SpiSetReservedArea(camera_, static_cast<uint16_t>(bytes.size()), bytes.data()));
    }

private:
    NyDevice* camera_;
};

inline Rom Camera::rom()
{
    return Rom(*this);
}

} // namespace nyxus

#endif
