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
         {R"(request = "SET_CUR"}, do = "stall")", R"(request = "GET_CUR"}, do = "stall")",
          R"(request = "GET_CUR", count = [20, 23]}, do = "short", bytes = 100)",
          R"(request = "GET_CUR"}, do = "wrong-length", bytes = 4)",
          R"(rom_address = 0x41FF}, do = "bit-flip", mask = 255)"}) {
        Bench bench{models::kFi2};
        engine::Camera camera = bench.open();
        bench.set_faults(R"(fault = [{when = {selector = 24, )" + std::string(fault) + "}]");
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

// The library's reads go on as if the camera had taken the request.
TEST(EngineReading, BelievesNoExchangeThatHasNotGoneWell)
{
    const struct {
        const char* model;
        int selector;
        const char* fault; // of the tenth exchange or so
        const char* why;
    } cases[] = {
        {"rowan-spi", 3, R"(request = "SET_CUR", count = 10}, do = "stall")", "rejected"},
        {"rowan-spi", 3, R"(request = "GET_CUR", count = 10}, do = "stall")", "rejected"},
        {"rowan-spi", 3, R"(request = "SET_CUR", count = 10}, do = "short", bytes = 5)",
         "took only 5 of 35 bytes"},
        {"rowan-spi", 3, R"(request = "GET_CUR", count = 10}, do = "short", bytes = 30)",
         "answered 30 bytes where 35 were due"},
        {"rowan-spi", 3, R"(request = "GET_CUR", count = 10}, do = "wrong-length", bytes = 4)",
         "answered 4 bytes"},
        {"hawthorn-eeprom", 3, R"(request = "SET_CUR", count = 10}, do = "io-error")",
         "transfer error"},
        {"hawthorn-eeprom", 3, R"(request = "GET_CUR", count = 10}, do = "short", bytes = 3)",
         "answered 3 bytes where 11 were due"},
        {"fi2-spi", 24, R"(request = "SET_CUR", count = 10}, do = "stall")", "rejected"},
        {"fi2-spi", 24, R"(request = "GET_CUR", count = 10}, do = "short", bytes = 515)",
         "answered 515 bytes where 516 were due"},
        {"rowan-spi", 2, R"(request = "SET_CUR"}, times = 1, do = "stall")", "selecting block"},
    };
    for (const auto& c : cases) {
        Bench bench{c.model};
        engine::Camera camera = bench.open();
        bench.set_faults(R"(fault = [{when = {selector = )" + std::to_string(c.selector) + ", " +
                         c.fault + "}]");
        const auto contents = engine::read_rom(camera, 0, 0x2000, bench.listener.caller());
        ASSERT_TRUE(contents) << c.fault << contents.status().text();
        EXPECT_TRUE(bench.rom_begins_with(*contents)) << c.model << c.fault;
        const auto told = std::ranges::find(bench.listener.events, engine::Event::Kind::kReadAgain,
                                            &engine::Event::kind);
        ASSERT_NE(told, bench.listener.events.end()) << c.model << c.fault;
        EXPECT_NE(told->status.message().find(c.why), std::string::npos) << told->status.message();
        EXPECT_FALSE(camera.wide_path_fails) << c.fault;
    }
}

TEST(EngineReading, FailsWhereACameraRefusesForGood)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    bench.set_faults(
        R"(fault = [{when = {selector = 3, request = "SET_CUR", count = [10, 13]}, do = "stall"}])");
    const auto refused = engine::read_rom(camera, 0, 0x2000, bench.listener.caller());
    EXPECT_EQ(refused.status().reason(), engine::Reason::kOther);
    EXPECT_NE(refused.status().message().find("reading failed at 0x0120: the camera rejected"),
              std::string::npos)
        << refused.status().message();
}

TEST(EngineReading, AnAnswerToAnotherRequestIsNoneWhereTheCameraRepeatsAddresses)
{
    engine::AddressEcho repeats;
    engine::AddressEcho does_not;
    for (int i = 0; i < 8; ++i) {
        EXPECT_TRUE(repeats.accepts(true));
        EXPECT_TRUE(does_not.accepts(i == 0));
    }
    EXPECT_FALSE(repeats.accepts(false));
    EXPECT_TRUE(does_not.accepts(false));
}

// The host believes that the request has arrived, and the camera answers the one before.
TEST(EngineReading, NoticesARequestThatIsSwallowed)
{
    const struct {
        const char* model;
        uint8_t selector;
        size_t bytes;
    } cases[] = {
        {"rowan-spi", ZRV_XU_EXT_ROM, 35},
        {"hawthorn-eeprom", ZRV_XU_EXT_ROM, 11},
        {"fi2-spi", ZRV_XU_Read_EXT_ROM_512, 516},
    };
    for (const auto& c : cases) {
        Bench bench{c.model};
        engine::Camera camera = bench.open();
        bench.simulated.fail(UVC_SET_CUR, c.selector,
                             sim::Fault::answer(std::vector<uint8_t>(c.bytes)), 9);
        const auto contents = engine::read_rom(camera, 0, 0x2000, bench.listener.caller());
        ASSERT_TRUE(contents) << c.model << contents.status().text();
        EXPECT_TRUE(bench.rom_begins_with(*contents)) << c.model;
        EXPECT_TRUE(bench.listener.has(engine::Event::Kind::kReadAgain)) << c.model;
    }
}

TEST(EngineReading, SelectsTheBlockItself)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    ASSERT_EQ(XuSetFlashBlockIndex(camera.device(), 1), 0);
    const auto first = engine::read_rom(camera, 0, 0x400, {});
    ASSERT_TRUE(first);
    EXPECT_TRUE(bench.rom_begins_with(*first));
    const auto second = engine::read_rom(camera, 0xFF80, 0x100, {});
    ASSERT_TRUE(second) << second.status().text();
    EXPECT_EQ(*second, bench.simulated.rom(0xFF80, 0x100));
    uint16_t block = 1;
    EXPECT_EQ(UvcXuCtrlQueryNYXU(camera.device(), ZRV_XU_FLASH_BLOCK, UVC_GET_CUR,
                                 reinterpret_cast<uint8_t*>(&block)),
              0);
    EXPECT_EQ(block, 0) << "writing relies on it";
}

TEST(EngineReading, ReadsTheOnlyCopyTwice)
{
    const struct {
        const char* model;
        const char* when;
        bool ends_well;
    } cases[] = {
        {"rowan-spi", R"(rom_address = 0x1234, count = 1)", true},
        {"rowan-spi", R"(rom_address = 0x1234, count = 2)", true},
        {"hawthorn-eeprom", R"(rom_address = 0x0234, count = 2)", true},
        {"fi2-spi", R"(rom_address = 0x1234, count = 1)", true},
        {"rowan-spi", R"(rom_address = [0x1200, 0x12FF], probability = 0.9)", false},
    };
    for (const auto& c : cases) {
        Bench bench{c.model};
        engine::Camera camera = bench.open();
        const auto before = bench.simulated.rom(0, 0x2000);
        bench.set_faults(R"(fault = [{when = {)" + std::string(c.when) + R"(}, do = "bit-flip"}])");
        const auto contents = engine::read_rom_twice(camera, 0, 0x2000, bench.listener.caller());
        EXPECT_EQ(contents.ok(), c.ends_well) << c.when;
        EXPECT_TRUE(bench.listener.has(engine::Event::Kind::kReadAgain)) << c.when;
        if (contents) {
            EXPECT_EQ(*contents, before) << c.model << c.when;
        } else {
            EXPECT_EQ(contents.status().reason(), engine::Reason::kUnreliableReads);
        }
    }
}

TEST(EngineReading, ReadsAgainBeforeSomethingIsCalledDifferent)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    const engine::Images images = images_for(models::kRowan);
    bench.set_faults(
        R"(fault = [{when = {rom_address = 0x1234, request = "GET_CUR", count = 3}, do = "bit-flip"}])");
    const engine::Report report = bench.upgrade(camera, images);
    EXPECT_TRUE(report.status) << report.status.text();
    EXPECT_EQ(bench.simulated.bed().fault_strikes().front(), 1u);
    EXPECT_EQ(report.rom, engine::RomContents::kNew);
}

} // namespace
