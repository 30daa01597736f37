// SPDX-License-Identifier: Apache-2.0
#include "queue.h"
#include "report/phase_scope.h"
#include "text/format.h"
#include "wide_path.h"

namespace nyxus::engine {

namespace {

/// Enough that the queue, which a slice's end empties, is full most of the time.
constexpr uint32_t kExchangesInSlice = 256;
constexpr int kRounds = 3;

using Slice = std::span<uint8_t>;

uint32_t narrow_slice(const Camera& camera)
{
    return kExchangesInSlice * static_cast<uint32_t>(narrow_width(camera));
}

Status check_reachable(const Camera& camera, uint32_t address, uint64_t size)
{
    const uint32_t end = readable_bytes(camera);
    if (address <= end && size <= end - address)
        return {};
    if (end == kRomBlock)
        return {Reason::kNotSupported, "only the first 64 KiB of the ROM can be read"};
    return {Reason::kNotSupported, text::format("the ROM has only %u bytes", end)};
}

Status read_narrow(const Reading& reading, uint32_t address, Slice out)
{
    return read_inside_block(reading, narrow_width(reading.camera), address, out);
}

/// By 512 bytes as long as that goes well.
Status read_widest(const Reading& reading, bool& wide, uint32_t address, Slice out)
{
    if (!wide)
        return read_narrow(reading, address, out);
    Status read = read_wide(reading, address, out);
    if (read || read.reason() == Reason::kCameraGone)
        return read;
    wide = false;
    reading.camera.wide_path_fails = true;
    return read_narrow(reading, address, out);
}

/// Reads a range block by block and slice by slice. Block 0 is selected afterwards, since writing
/// relies on that.
template <typename ReadSlice>
Status walk(const Reading& reading, uint32_t address, uint32_t size, uint32_t slice_size,
            const ReadSlice& read_slice)
{
    uint32_t block_end = 0;
    for (uint32_t done = 0; done < size;) {
        if (reading.caller.stop.stop_requested())
            return stopped();
        const uint32_t at = address + done;
        if (done == 0 || at == block_end) {
            if (Status selected = select_block(reading, at); !selected)
                return selected;
            block_end = (at / kRomBlock + 1) * kRomBlock;
        }
        const uint32_t slice = std::min({slice_size, size - done, block_end - at});
        if (Status read = read_slice(at, done, slice); !read)
            return read;
        done += slice;
    }
    return {};
}

template <typename ReadSlice>
Status walk_and_return(const Reading& reading, uint32_t address, uint32_t size, uint32_t slice_size,
                       const ReadSlice& read_slice)
{
    Status walked = walk(reading, address, size, slice_size, read_slice);
    if (address + size <= kRomBlock || walked.reason() == Reason::kCameraGone)
        return walked;
    Status returned = select_block(reading, 0);
    return walked ? std::move(returned) : std::move(walked);
}

template <typename Advance>
Status read_range(const Reading& reading, uint32_t address, Slice out, const Advance& advance)
{
    bool wide = can_read_wide(reading.camera);
    return walk_and_return(reading, address, static_cast<uint32_t>(out.size()),
                           wide ? kWideSlice : narrow_slice(reading.camera),
                           [&](uint32_t at, uint32_t done, uint32_t slice) {
                               Status read =
                                   read_widest(reading, wide, at, out.subspan(done, slice));
                               if (read)
                                   advance(slice);
                               return read;
                           });
}

/// Two readings of a slice that have differed, until two new ones are equal.
Status settle(const Reading& reading, uint32_t address, Slice slice)
{
    Status differ{Reason::kUnreliableReads,
                  text::format("two readings of the ROM differ, somewhere in %zu bytes from "
                               "0x%04X; what the camera says cannot be relied on",
                               slice.size(), address)};
    std::vector<uint8_t> second(slice.size());
    for (int round = 0; round < kRounds; ++round) {
        tell_read_again(reading, differ);
        bool wide = can_read_wide(reading.camera);
        if (Status read = read_widest(reading, wide, address, slice); !read)
            return read;
        if (Status read = read_narrow(reading, address, second); !read)
            return read;
        if (std::ranges::equal(slice, second))
            return {};
    }
    return differ;
}

} // namespace

Result<std::vector<uint8_t>> read_rom(Camera& camera, uint32_t address, uint32_t size,
                                      const Caller& caller, Phase phase)
{
    if (Status possible = check_reachable(camera, address, size); !possible)
        return possible;
    std::vector<uint8_t> bytes(size);
    PhaseScope scope(caller, phase, size);
    Status read = read_range({camera, caller, phase}, address, bytes,
                             [&](uint32_t slice) { scope.advance(slice); });
    if (!read)
        return read;
    scope.end();
    return bytes;
}

Status confirm_rom(Camera& camera, uint32_t address, std::vector<uint8_t>& bytes,
                   const Caller& caller)
{
    if (Status possible = check_reachable(camera, address, bytes.size()); !possible)
        return possible;
    const Reading reading{camera, caller, Phase::kReadingAgain};
    const auto size = static_cast<uint32_t>(bytes.size());
    PhaseScope scope(caller, Phase::kReadingAgain, size);
    std::vector<uint8_t> second(narrow_slice(camera));
    Status read = walk_and_return(reading, address, size, narrow_slice(camera),
                                  [&](uint32_t at, uint32_t done, uint32_t slice) {
                                      const Slice first = Slice(bytes).subspan(done, slice);
                                      const Slice again = Slice(second).first(slice);
                                      Status same = read_narrow(reading, at, again);
                                      if (same && !std::ranges::equal(first, again))
                                          same = settle(reading, at, first);
                                      if (same)
                                          scope.advance(slice);
                                      return same;
                                  });
    if (read)
        scope.end();
    return read;
}

Result<std::vector<uint8_t>> read_rom_twice(Camera& camera, uint32_t address, uint32_t size,
                                            const Caller& caller)
{
    auto bytes = read_rom(camera, address, size, caller);
    if (!bytes)
        return bytes;
    Status same = confirm_rom(camera, address, *bytes, caller);
    return same ? std::move(bytes) : same;
}

Result<std::vector<uint8_t>> read_back(Camera& camera, uint32_t address, Bytes expected,
                                       const Caller& caller, Phase phase)
{
    auto bytes = read_rom(camera, address, static_cast<uint32_t>(expected.size()), caller, phase);
    if (!bytes)
        return bytes;
    const Reading reading{camera, caller, phase};
    for (int round = 0; round < kRounds; ++round) {
        const auto [first, unused] = std::ranges::mismatch(*bytes, expected);
        if (first == bytes->end())
            break;
        size_t end = bytes->size();
        while ((*bytes)[end - 1] == expected[end - 1])
            --end;
        const auto begin = static_cast<size_t>(first - bytes->begin());
        const uint32_t from = address + static_cast<uint32_t>(begin);
        tell_read_again(reading, {Reason::kMismatch,
                                  text::format("%zu bytes from 0x%04X differ", end - begin, from)});
        const Slice different = Slice(*bytes).subspan(begin, end - begin);
        if (Status read = read_range(reading, from, different, [](uint32_t) {}); !read)
            return read;
    }
    return bytes;
}

} // namespace nyxus::engine
