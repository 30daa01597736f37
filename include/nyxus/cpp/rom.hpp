// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * The external ROM: read, compare, upgrade, erase.
 *
 * The library's own production functions report progress as marks on standard error, and keep
 * images in process-wide memory. These are made of the same steps, whose transfers are short enough
 * to print nothing: they tell a callback, and may run for several cameras at once, a thread each.
 */
#ifndef NYXUS_CPP_ROM_HPP
#define NYXUS_CPP_ROM_HPP

#include <nyxus/production.h>
#include <nyxus/rom.h>
#include <nyxus/cpp/camera.hpp>
#include <nyxus/cpp/image.hpp>

#include <functional>

namespace nyxus {

/// What is being done with the ROM.
enum class Phase { kReading, kUnlocking, kErasing, kProgramming, kLocking, kVerifying };

/// For people: "erasing".
inline const char* phase_name(Phase phase)
{
    constexpr const char* kNames[] = {"reading",     "unlocking", "erasing",
                                      "programming", "locking",   "verifying"};
    return kNames[static_cast<size_t>(phase)];
}

struct Progress {
    Phase phase;
    uint32_t done;  ///< bytes
    uint32_t total; ///< bytes; 0 in phases of which nobody knows how long they take
};

/// Called on the caller's thread: when a phase begins, and as its bytes go by.
using ProgressCallback = std::function<void(const Progress&)>;

struct UpgradeOptions {
    const MfiImage* mfi = nullptr; ///< programmed too; borrowed
    bool verify = true;            ///< read back and compare
    ProgressCallback progress;
};

/// What a comparison has found.
struct Comparison {
    size_t differing = 0; ///< bytes
    size_t first = 0;     ///< offset of the first one
    bool equal() const { return differing == 0; }
};

/// The external ROM of a camera, which it must not outlive. Everything here blocks for up to a
/// minute; a camera that is connected but does not answer is waited for without a limit.
class Rom {
public:
    explicit Rom(Camera& camera) : camera_(camera.device()) {}

    /// Bytes that the controller uses.
    uint32_t size() const { return camera_->dwExtRomSize; }

    /// Reads from the first 64 KiB, which are all that the controller uses; NYXUS_E_RANGE beyond.
    Status read(uint32_t address, Span<uint8_t> bytes, const ProgressCallback& progress = {})
    {
        return read_as(Phase::kReading, address, bytes, progress);
    }
    /// Reads all that the controller uses, or its first bytes.
    Result<std::vector<uint8_t>> dump(const ProgressCallback& progress = {})
    {
        return dump(size(), progress);
    }
    Result<std::vector<uint8_t>> dump(uint32_t size_bytes, const ProgressCallback& progress = {})
    {
        std::vector<uint8_t> bytes(size_bytes);
        Status status = read(0, bytes, progress);
        if (!status)
            return status;
        return bytes;
    }

    /// Compares the ROM with an image, as far as the image goes.
    Result<Comparison> compare(const FirmwareImage& image, const ProgressCallback& progress = {})
    {
        return compare_as(Phase::kReading, 0, image.bytes(), progress);
    }

    /**
     * Programs an image: unlocks, erases (SPI flash), writes MFi image, body and, last, the header,
     * locks, and reads everything back. An upgrade that breaks off leaves no valid firmware behind.
     *
     * What is checked before anything is written: NYXUS_E_MISMATCH for another chip's image,
     * NYXUS_E_RANGE for one that does not fit, also not beside the MFi image. After any other
     * failure the ROM is unlocked and partly programmed: upgrade again. NYXUS_E_FAILED: the ROM
     * does not hold what was written. A ROM that could not be locked is a failure of its own,
     * reported after everything else went well.
     *
     * A board that protects its EEPROM by GPIO 0 needs Camera::set_gpio(0, false) first.
     */
    Status upgrade(const FirmwareImage& image, const UpgradeOptions& options = {})
    {
        const Bytes mfi = options.mfi != nullptr ? options.mfi->bytes() : Bytes();
        if (Status fits = check(image, mfi); !fits)
            return fits;
        tell(options.progress, {Phase::kUnlocking, 0, 0});
        if (Status rv = write_enable(true); !rv)
            return rv;
        if (camera_->xSpiMode != 0) {
            tell(options.progress, {Phase::kErasing, 0, 0});
            if (Status rv = Status::of(XU_SpiEraseChip(camera_)); !rv)
                return rv;
        }
        if (Status rv = program(image.bytes(), mfi, options.progress); !rv)
            return rv;
        tell(options.progress, {Phase::kLocking, 0, 0});
        Status locked = write_enable(false);
        if (options.verify) {
            if (Status rv = verify(0, image.bytes(), options.progress); !rv)
                return rv;
            if (Status rv = verify(NYXUS_MFI_ROM_ADDR, mfi, options.progress); !rv)
                return rv;
        }
        if (!locked) {
            return {locked.code(),
                    "programmed, but the ROM could not be locked: " + locked.message()};
        }
        return locked;
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
    // Transfers of up to 511 bytes print no marks. Slices are made of whole exchanges.
    static constexpr size_t kReadSlice = 256;
    static constexpr size_t kWriteSlice = 480;
    static constexpr size_t kMostInSilence = 511;
    // Slices select no block.
    static constexpr size_t kReadable = 0x10000;

    static void tell(const ProgressCallback& progress, const Progress& state)
    {
        if (progress)
            progress(state);
    }

    Status check(const FirmwareImage& image, Bytes mfi) const
    {
        if (image.signature() != std::string(camera_->szIntFwVer, 2))
            return {NYXUS_E_MISMATCH, "the image is for another chip"};
        if (image.bytes().size() > size())
            return {NYXUS_E_RANGE, "the image is larger than the ROM"};
        if (!mfi.empty() &&
            (image.bytes().size() > NYXUS_MFI_ROM_ADDR || NYXUS_MFI_ROM_ADDR + mfi.size() > size()))
            return {NYXUS_E_RANGE, "the ROM has no room for firmware and MFi image"};
        return {};
    }

    Status write_enable(bool enable)
    {
        return Status::of(MP_ExtRomWriteEnable(camera_, camera_->bExtRomType, enable));
    }

    /// The header comes last: until it is there the ROM holds no valid firmware.
    Status program(Bytes image, Bytes mfi, const ProgressCallback& progress)
    {
        Progress state{Phase::kProgramming, 0, static_cast<uint32_t>(image.size() + mfi.size())};
        tell(progress, state);
        constexpr uint32_t kHeader = FirmwareImage::kHeaderBytes;
        if (Status rv = write(NYXUS_MFI_ROM_ADDR, mfi, state, progress); !rv)
            return rv;
        if (Status rv = write(kHeader, image.subspan(kHeader), state, progress); !rv)
            return rv;
        return write(0, image.subspan(0, kHeader), state, progress);
    }

    Status write(uint32_t address, Bytes bytes, Progress& state, const ProgressCallback& progress)
    {
        for (size_t done = 0; done < bytes.size();) {
            const size_t left = bytes.size() - done;
            const size_t slice = left <= kMostInSilence ? left : kWriteSlice;
            const int32_t rv = XuExtRomWrite(camera_, address + static_cast<uint32_t>(done),
                                             static_cast<uint32_t>(slice), bytes.data() + done);
            if (rv < 0)
                return Status::of(rv);
            done += slice;
            state.done += static_cast<uint32_t>(slice);
            tell(progress, state);
        }
        return {};
    }

    Status read_as(Phase phase, uint32_t address, Span<uint8_t> bytes,
                   const ProgressCallback& progress)
    {
        if (address > kReadable || bytes.size() > kReadable - address)
            return {NYXUS_E_RANGE, "only the first 64 KiB of the ROM can be read"};
        Progress state{phase, 0, static_cast<uint32_t>(bytes.size())};
        tell(progress, state);
        while (state.done < state.total) {
            const uint32_t slice = std::min<uint32_t>(kReadSlice, state.total - state.done);
            const int32_t rv =
                XuExtRomRead(camera_, address + state.done, slice, bytes.data() + state.done);
            if (rv < 0)
                return Status::of(rv);
            state.done += slice;
            tell(progress, state);
        }
        return {};
    }

    Result<Comparison> compare_as(Phase phase, uint32_t address, Bytes wanted,
                                  const ProgressCallback& progress)
    {
        std::vector<uint8_t> found(wanted.size());
        Status status = read_as(phase, address, found, progress);
        if (!status)
            return status;
        Comparison comparison;
        for (size_t i = wanted.size(); i-- > 0;) {
            if (found[i] == wanted[i])
                continue;
            ++comparison.differing;
            comparison.first = i;
        }
        return comparison;
    }

    Status verify(uint32_t address, Bytes written, const ProgressCallback& progress)
    {
        if (written.empty())
            return {};
        auto comparison = compare_as(Phase::kVerifying, address, written, progress);
        if (!comparison)
            return comparison.status();
        if (comparison->equal())
            return {};
        return {NYXUS_E_FAILED, "the ROM does not hold what was written: " +
                                    std::to_string(comparison->differing) + " bytes differ"};
    }

    NyDevice* camera_;
};

inline Rom Camera::rom()
{
    return Rom(*this);
}

} // namespace nyxus

#endif
