// SPDX-License-Identifier: Apache-2.0
// Reading the ROM by 8, 32 and 512 bytes, also from cameras that serve it badly.
#include <gtest/gtest.h>
#include "bench.h"

namespace {

/// Requests to one control of the vendor unit.
size_t requests(Bench& bench, uint8_t selector)
{
    return static_cast<size_t>(
        std::ranges::count_if(bench.simulated.sim().transfers(), [&](const sim::Transfer& sent) {
            const sim::Setup setup = sim::Setup::from_wire(sent.setup);
            return setup.type() == 1 && setup.selector() == selector;
        }));
}

TEST(EngineReading, TakesTheWidestPathThatACameraServes)
{
    const struct {
        const char* model;
        size_t wide;   // 2 for each 512 bytes
        size_t narrow; // 2 for each 4 KiB, or for each 8 or 32 bytes
    } cases[] = {
        {"fi2-spi", 128, 16},   {"larch-spi", 128, 16},       {"rowan-spi", 0, 2048},
        {"cedar-spi", 0, 2048}, {"hawthorn-eeprom", 0, 8192},
    };
    for (const auto& c : cases) {
        Bench bench{c.model};
        engine::Camera camera = bench.open();
        bench.simulated.listen();
        const auto contents = engine::read_rom(camera, 0, 0x8000, bench.listener.caller());
        ASSERT_TRUE(contents) << c.model;
        EXPECT_TRUE(bench.rom_begins_with(*contents)) << c.model;
        EXPECT_EQ(requests(bench, ZRV_XU_Read_EXT_ROM_512), c.wide) << c.model;
        EXPECT_EQ(requests(bench, ZRV_XU_EXT_ROM), c.narrow) << c.model;
        EXPECT_EQ(bench.listener.events.back().done, 0x8000u);
    }
}

TEST(EngineReading, IsRightWhenACameraServes512BytesBadly)
{
    for (const char* fault :
         {R"("request": "SET_CUR"}, "do": "stall")", R"("request": "GET_CUR"}, "do": "stall")",
          R"("request": "GET_CUR", "count": 20}, "do": "short", "bytes": 100)",
          R"("request": "GET_CUR"}, "do": "wrong-length", "bytes": 4)",
          R"("rom_address": "0x41FF"}, "do": "bit-flip", "mask": 255)"}) {
        Bench bench{models::kFi2};
        engine::Camera camera = bench.open();
        bench.set_faults(R"([{"when": {"selector": 24, )" + std::string(fault) + "}]");
        const auto contents = engine::read_rom(camera, 0, 0x8000, {});
        ASSERT_TRUE(contents) << fault << contents.status().text();
        EXPECT_TRUE(bench.rom_begins_with(*contents)) << fault;
        EXPECT_TRUE(camera.wide_path_fails) << fault;
        EXPECT_GE(bench.simulated.bed().fault_strikes().front(), 1u) << fault;
    }
}

// The firmware takes a request by 512 bytes for a write as long as the ROM is unlocked.
TEST(EngineReading, KeepsToTheNarrowPathWhileTheRomIsUnlocked)
{
    Bench bench{models::kFi2};
    engine::Camera camera = bench.open();
    ASSERT_EQ(MP_ExtRomWriteEnable(camera.device(), EXTROM_TYPE_SPI, true), 0);
    bench.simulated.listen();
    const auto contents = engine::read_rom(camera, 0x100, 0x1000, {});
    ASSERT_TRUE(contents);
    EXPECT_EQ(*contents, bench.simulated.rom(0x100, 0x1000));
    EXPECT_EQ(requests(bench, ZRV_XU_Read_EXT_ROM_512), 0u);
    EXPECT_EQ(engine::read_rom(camera, 0xFFFF, 2, {}).status().reason(),
              engine::Reason::kNotSupported);
}

} // namespace
