// SPDX-License-Identifier: Apache-2.0
// Feeds the reader of fault files with any text. What could be read is then done to a camera.
//
// Input: the text, TOML or JSON.
#include <algorithm>
#include <array>
#include <cstdlib>
#include <string_view>
#include <vector>

#include "chip/clock.h"
#include "faults/fault_engine.h"
#include "faults/fault_file.h"

namespace {

void strike(const sim::FaultPlan& plan)
{
    constexpr unsigned kRounds = 8;
    constexpr sim::Setup kGet = {0xA1, 0x81, 0x0300, 0x0600, 35};
    sim::VirtualClock clock;
    sim::FaultEngine engine(1, "S1", clock, {[] {}, [](uint64_t) {}});
    const std::vector<uint64_t> delays_us = engine.add(plan);
    for (unsigned round = 0; round < kRounds; ++round) {
        (void)engine.on_transfer(kGet);
        std::array<uint8_t, 32> cells{};
        for (const auto kind : {sim::RomAccess::Kind::kRead, sim::RomAccess::Kind::kProgram,
                                sim::RomAccess::Kind::kErase, sim::RomAccess::Kind::kWriteStatus}) {
            sim::RomAccess access{.kind = kind, .address = 0x4000 * round, .bytes = cells.size()};
            if (kind == sim::RomAccess::Kind::kRead)
                access.answer = cells;
            (void)engine.on_rom_access(access);
        }
        (void)engine.on_answer();
        (void)engine.on_frame();
        if (!delays_us.empty())
            clock.advance_us(std::min<uint64_t>(std::ranges::min(delays_us), 1'000'000));
        (void)engine.on_clock();
    }
    if (engine.strikes().size() != plan.size())
        std::abort();
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    try {
        strike(sim::parse_faults({reinterpret_cast<const char*>(data), size}, "faults.toml"));
    } catch (const sim::DescriptionError& error) {
        if (*error.what() == '\0')
            std::abort(); // says nothing
    }
    return 0;
}
