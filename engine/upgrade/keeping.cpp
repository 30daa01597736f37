// SPDX-License-Identifier: Apache-2.0
#include "keeping.h"

#include <nyxus/rom.h>
#include <algorithm>
#include <nyxus/engine/rom.hpp>

#include "images/rom_layout.h"

namespace nyxus::engine {

namespace {

constexpr uint32_t kPage = 256;
constexpr uint32_t kMfiEnd = NYXUS_MFI_ROM_ADDR + NYXUS_MFI_BIN_CAPACITY;
constexpr uint32_t kReservedEnd = SPI_RESERVED_ADDR + 256;

/// From `begin` up to `end`.
struct Range {
    uint32_t begin;
    uint32_t end;

    uint32_t size() const { return end > begin ? end - begin : 0; }
};

Range common(Range a, Range b)
{
    return {std::max(a.begin, b.begin), std::min(a.end, b.end)};
}

uint32_t size_of(Bytes bytes)
{
    return static_cast<uint32_t>(bytes.size());
}

Bytes bytes_in(Bytes rom, Range range)
{
    return range.size() == 0 ? Bytes() : rom.subspan(range.begin, range.size());
}

/// Without the blank pages at both ends.
Range pages_with_data(Bytes rom, Range range)
{
    const auto page_at = [&](uint32_t address) {
        return common(range, {address & ~(kPage - 1), (address & ~(kPage - 1)) + kPage});
    };
    while (range.size() > 0 && is_blank(bytes_in(rom, page_at(range.begin))))
        range.begin = page_at(range.begin).end;
    while (range.size() > 0 && is_blank(bytes_in(rom, page_at(range.end - 1))))
        range.end = page_at(range.end - 1).begin;
    return range;
}

/// A part of 32 KiB holds nothing else behind them: it is read from its start again.
Bytes within_part(const Camera& camera, Bytes rom)
{
    return rom.subspan(0, std::min<size_t>(rom.size(), part_bytes(camera)));
}

class Sorting {
public:
    Sorting(const Camera& camera, const Images& images, const UpgradeOptions& options, Bytes before,
            Plan& plan)
        : camera_(camera),
          images_(images),
          options_(options),
          before_(within_part(camera, before)),
          plan_(plan)
    {
    }

    void run()
    {
        const auto end = size_of(before_);
        const uint32_t firmware_end = end_of_firmware(before_);
        replace("firmware", {0, firmware_end});
        const Range mfi = {std::max<uint32_t>(NYXUS_MFI_ROM_ADDR, firmware_end), kMfiEnd};
        const Range reserved = {std::max<uint32_t>(SPI_RESERVED_ADDR, firmware_end), kReservedEnd};
        sort(kOtherData, {firmware_end, NYXUS_MFI_ROM_ADDR}, false);
        if (images_.mfi) {
            replace(kMfi, mfi);
        } else {
            sort(kMfi, mfi, options_.discard.mfi);
        }
        sort(kOtherData, {std::max(kMfiEnd, firmware_end), SPI_RESERVED_ADDR}, false);
        sort(kReserved, reserved, options_.discard.reserved);
        sort(kOtherData, {kReservedEnd, end}, false);
        look_beyond(std::max(end, kRomBlock));
    }

private:
    static constexpr char kMfi[] = "MFi image";
    static constexpr char kReserved[] = "reserved area";
    static constexpr char kOtherData[] = "other data";

    void replace(const char* name, Range range)
    {
        range = pages_with_data(before_, within(range));
        if (range.size() > 0)
            plan_.replaced.push_back({name, range.begin, range.size()});
    }

    Range within(Range range) const { return common(range, {0, size_of(before_)}); }

    /// What stands behind the former firmware and is none of it.
    void sort(const char* name, Range range, bool discard)
    {
        range = within(range);
        const auto firmware_end = size_of(images_.firmware.bytes());
        overwrite(name, common(range, {0, firmware_end}));
        const Range rest = common(range, {firmware_end, range.end});
        if (images_.mfi) { // only in the place of another one, which is replaced
            const auto mfi_end =
                NYXUS_MFI_ROM_ADDR + static_cast<uint32_t>(images_.mfi->bytes().size());
            overwrite(name, common(rest, {NYXUS_MFI_ROM_ADDR, mfi_end}));
        }
        keep(name, rest, discard);
    }

    /// The image wins.
    void overwrite(const char* name, Range range)
    {
        const Bytes firmware = images_.firmware.bytes();
        const Range used = pages_with_data(before_, range);
        if (used.size() > 0 && !images_.patched &&
            find_difference(bytes_in(before_, used), bytes_in(firmware, used)).count > 0)
            plan_.lost.push_back({name, used.begin, used.size(), {}, "the image overwrites it"});
    }

    void keep(const char* name, Range range, bool discard)
    {
        range = pages_with_data(before_, range);
        if (range.size() == 0 || !camera_.has_spi_flash())
            return;
        if (discard) {
            plan_.lost.push_back({name, range.begin, range.size(), {}, "it is not wanted"});
        } else {
            plan_.kept.push_back({name, range.begin, range.size(), bytes_in(before_, range)});
        }
    }

    /// What the erase takes and has not been read.
    void look_beyond(uint32_t begin)
    {
        const Range range = {begin, erased_flash_bytes(camera_)};
        if (range.size() == 0)
            return;
        const Part part = {"what else the flash holds", range.begin, range.size()};
        if (range.begin < readable_bytes(camera_)) {
            plan_.lost.push_back(part);
            plan_.lost.back().why = "the controller does not use it, and it is not looked at";
        } else {
            plan_.unreachable.push_back(part);
            plan_.unreachable.back().why = "the camera cannot be asked for it";
        }
    }

    const Camera& camera_;
    const Images& images_;
    const UpgradeOptions& options_;
    const Bytes before_;
    Plan& plan_;
};

} // namespace

void sort_contents(const Camera& camera, const Images& images, const UpgradeOptions& options,
                   Bytes before, Plan& plan)
{
    Sorting(camera, images, options, before, plan).run();
}

std::vector<std::pair<uint32_t, Bytes>> pages_in_use(uint32_t address, Bytes data)
{
    std::vector<std::pair<uint32_t, Bytes>> runs;
    uint32_t run = 0;
    const auto size = static_cast<uint32_t>(data.size());
    for (uint32_t begin = 0; begin < size;) {
        const uint32_t end = std::min(size, begin + kPage - (address + begin) % kPage);
        const bool begins_block = (address + begin) % kRomBlock == 0;
        if (is_blank(data.subspan(begin, end - begin))) {
            run = 0;
        } else if (run > 0 && !begins_block) {
            run += end - begin;
            runs.back().second = data.subspan(end - run, run);
        } else {
            run = end - begin;
            runs.emplace_back(begin, data.subspan(begin, run));
        }
        begin = end;
    }
    return runs;
}

} // namespace nyxus::engine
