// SPDX-License-Identifier: Apache-2.0
#include "report/phase_scope.h"
#include "text/format.h"
#include "wide_path.h"

namespace nyxus::engine {

/// Transfers of up to 511 bytes print no progress marks.
static constexpr uint32_t kNarrowSlice = 256;
static constexpr uint32_t kReachable = 0x10000;

Result<std::vector<uint8_t>> read_rom(Camera& camera, uint32_t address, uint32_t size,
                                      const Caller& caller, Phase phase)
{
    if (address > kReachable || size > kReachable - address)
        return Status(Reason::kNotSupported, "only the first 64 KiB of the ROM can be read");
    std::vector<uint8_t> bytes(size);
    PhaseScope scope(caller, phase, size);
    bool wide = can_read_wide(camera);
    for (uint32_t done = 0; done < size;) {
        if (caller.stop.stop_requested())
            return stopped();
        const uint32_t slice = std::min(wide ? kWideSlice : kNarrowSlice, size - done);
        const auto out = std::span(bytes).subspan(done, slice);
        if (wide && !read_wide(camera, address + done, out)) {
            wide = false;
            camera.wide_path_fails = true;
            continue;
        }
        const int32_t rv =
            wide ? 0 : XuExtRomRead(camera.device(), address + done, slice, out.data());
        if (rv < 0) {
            return library_failure(
                to_text(phase) + text::format(" failed at 0x%04X", address + done), rv);
        }
        done += slice;
        scope.advance(slice);
    }
    scope.end();
    return bytes;
}

} // namespace nyxus::engine
