// SPDX-License-Identifier: Apache-2.0
#include "bench.h"
#include "chip/boot.h"
#include "chip/eeprom.h"

#include <map>
#include <string>

namespace sim {
namespace {

/// A bare flash of the smallest part, unprotected, with its cells in view.
class Flash : public testing::Test {
protected:
    Flash() { chip.power_up(0x00); }

    void send(const Bytes& command) { chip.transfer(command, {}); }
    void enabled(const Bytes& command)
    {
        send({0x06});
        send(command);
    }
    void finish() { clock.advance_us(part.chip_erase_us); }

    const FlashPart& part = find_model("larch-spi")->flash;
    VirtualClock clock;
    Bytes cells = Bytes(part.size_bytes, 0xFF);
    SpiFlash chip{part, clock, cells};
};

} // namespace

TEST_F(Flash, ProgrammingClearsBitsAndWrapsInsideItsPage)
{
    enabled({0x02, 0, 0x01, 0xFE, 0xF0, 0x11, 0x22, 0x33});
    finish();
    enabled({0x02, 0, 0x01, 0xFE, 0x3F});
    EXPECT_EQ(cells[0x1FE], 0x30);
    EXPECT_EQ(cells[0x1FF], 0x11);
    EXPECT_EQ(cells[0x100], 0x22);
    EXPECT_EQ(cells[0x101], 0x33);
    EXPECT_EQ(cells[0x200], 0xFF);
}

TEST_F(Flash, IgnoresWritesWithoutEnableWhileBusyOrProtected)
{
    send({0x02, 0, 0, 0, 0x00});
    EXPECT_EQ(cells[0], 0xFF) << "no write enable";

    enabled({0x02, 0, 0, 1, 0x55});
    EXPECT_EQ(chip.status(), SpiFlash::kBusy | SpiFlash::kWriteEnabled);
    enabled({0x02, 0, 0, 2, 0x55});
    EXPECT_EQ(cells[2], 0xFF) << "busy";
    Bytes answer(2);
    chip.transfer(Bytes{0x03, 0, 0, 1}, answer);
    EXPECT_EQ(answer[0], 0xFF) << "busy";
    clock.advance_us(part.program_us);
    EXPECT_EQ(chip.status(), 0) << "the latch falls with the end of the write";

    for (const uint8_t protection : Bytes{0x04, 0x08, 0x10}) {
        chip.power_up(protection);
        enabled({0x02, 0, 0, 3, 0x55});
        enabled({part.chip_erase_command});
        EXPECT_EQ(cells[3], 0xFF);
        EXPECT_EQ(cells[1], 0x55);
    }
}

TEST_F(Flash, ErasesTheAlignedAreaThatHoldsTheAddress)
{
    struct Case {
        Bytes command;
        uint32_t begin, end, duration_us;
    };
    const Case cases[] = {
        {{0x20, 0, 0x12, 0x34}, 0x1000, 0x2000, part.sector_erase_us},
        {{0x52, 0, 0x80, 0x01}, 0x8000, 0x10000, part.block_erase_us},
        {{0xC7}, 0, 0x10000, part.chip_erase_us},
        {{0xD8, 0, 0, 0}, 0, 0, 0}, // not this part's block erase
        {{0x20, 0, 0x12}, 0, 0, 0}, // cut off
    };
    for (const Case& c : cases) {
        std::ranges::fill(cells, uint8_t{0});
        enabled(c.command);
        const auto erased = std::ranges::count(cells, 0xFF);
        EXPECT_EQ(erased, c.end - c.begin);
        EXPECT_EQ(std::count(cells.begin() + c.begin, cells.begin() + c.end, 0xFF), erased);
        if (c.duration_us != 0) {
            clock.advance_us(c.duration_us - 1);
            EXPECT_EQ(chip.status() & SpiFlash::kBusy, 1);
        }
        clock.advance_us(1);
        EXPECT_EQ(chip.status() & SpiFlash::kBusy, 0);
    }
}

TEST_F(Flash, KeepsItsStatusWhileTheWriteProtectPinHoldsIt)
{
    chip.power_up(0x9C);
    chip.set_wp_pin(true);
    enabled({0x01, 0x00});
    finish();
    EXPECT_EQ(chip.status() & 0x9C, 0x9C);

    chip.set_wp_pin(false);
    send({0x04});
    send({0x01, 0x00});
    finish();
    EXPECT_EQ(chip.status(), 0x9C) << "neither enable command came before";

    send({0x50});
    send({0x01, 0x00});
    EXPECT_EQ(chip.status(), 0x9D) << "old value until the write is over";
    clock.advance_us(part.status_write_us);
    EXPECT_EQ(chip.status(), 0x00);
}

TEST(EepromChip, LosesAWriteThatComesDuringTheWriteCycle)
{
    const EepromPart& part = find_model("hawthorn-eeprom")->eeprom;
    VirtualClock clock;
    Bytes cells(part.size_bytes, 0xFF);
    Eeprom chip(part, clock, cells);
    Bytes out(1);

    chip.write(0, Bytes{1});
    EXPECT_EQ(cells[0], 0xFF) << "protected";
    chip.set_protected(false);
    chip.write(part.page_bytes - 1, Bytes{2, 3});
    EXPECT_EQ(cells[part.page_bytes - 1], 2);
    EXPECT_EQ(cells[0], 3) << "wraps inside the page";

    clock.advance_us(part.write_cycle_us - 1);
    chip.write(64, Bytes{4});
    chip.read(0, out);
    EXPECT_EQ(cells[64], 0xFF);
    EXPECT_EQ(out[0], 0xFF);
    clock.advance_us(1);
    chip.write(64, Bytes{5});
    EXPECT_EQ(cells[64], 5);
}

TEST(EepromChip, APowerCutTearsThePageThatIsBeingWritten)
{
    const EepromPart& part = find_model("fi2-board")->eeprom;
    const auto page = static_cast<ptrdiff_t>(part.page_bytes);
    const Bytes data(static_cast<size_t>(4 * page), 0x55);
    const struct {
        ptrdiff_t pages; // in the EEPROM before the power goes
        bool is_planned;
    } cases[] = {{0, false}, {2, false}, {3, false}, {1, true}};
    for (const auto& [pages, is_planned] : cases) {
        VirtualClock clock;
        Bytes cells(part.size_bytes, 0xFF);
        Eeprom chip(part, clock, cells);
        chip.set_protected(false);
        if (is_planned) {
            chip.set_fault([&](const RomAccess& access) {
                return RomFault{.power_cut = access.address == part.page_bytes};
            });
        }
        chip.write_pages(0, data);
        if (!is_planned) {
            clock.advance_us(static_cast<uint64_t>(pages) * part.write_cycle_us + 1);
            chip.power_cut();
        }
        EXPECT_EQ(std::ranges::count(cells, 0x55), pages * page + page / 2);
        EXPECT_EQ(std::count(cells.begin(), cells.begin() + pages * page, 0x55), pages * page);
    }
}

TEST(Boot, RefusesEveryImageThatIsNotWholeOrNotForThisChip)
{
    const CameraModel& model = *find_model("rowan-spi");
    const Bytes good = new_image(model);
    ASSERT_TRUE(boot(model, good).external);
    const RunningFirmware running = boot(model, good);
    EXPECT_EQ(running.version, 0x0234);
    EXPECT_EQ(running.sensor_application_id, 0x0077);
    EXPECT_STREQ(reinterpret_cast<const char*>(running.setfile_version.data()), "SF-02.34");

    ImageRequest foreign = factory_image_request(model);
    foreign.signature = {'C', 'B'};
    const auto damaged = [&good](size_t begin, size_t end) {
        Bytes image = good;
        std::fill(image.begin() + static_cast<ptrdiff_t>(begin),
                  image.begin() + static_cast<ptrdiff_t>(end), uint8_t{0xFF});
        return image;
    };
    const std::map<std::string, Bytes> cases = {
        {"erased", Bytes(good.size(), 0xFF)},
        {"header missing", damaged(0, 0x40)},
        {"first header chunk only", damaged(8, 0x40)},
        {"half a header", damaged(0x20, 0x40)},
        {"last header chunk missing", damaged(0x38, 0x40)},
        {"half a body", damaged(good.size() / 2, good.size())},
        {"one chunk lost", damaged(0x1000, 0x1008)},
        {"last byte lost", damaged(good.size() - 1, good.size())},
        {"foreign signature", make_firmware_image(foreign)},
        {"cut off", Bytes(good.begin(), good.end() - 1)},
        {"tiny", Bytes(good.begin(), good.begin() + 0x41)},
    };
    for (const auto& [name, image] : cases)
        EXPECT_FALSE(boot(model, image).external) << name;
}

// Until it is ready the ROM cannot be read, so there is nothing to boot from but the mask ROM.
TEST(Boot, ARomThatIsBusyStaysSoOverAResetButNotOverAPowerCycle)
{
    for (const char* model : {"rowan-spi", "willow-eeprom"}) {
        for (const bool power_cycle : {false, true}) {
            Bench bench(model);
            const Bytes before(bench.chip.rom.begin(), bench.chip.rom.end());
            const Bytes data = {0x11, 0x22, 0x33, 0x44};
            const auto address = // behind the firmware
                static_cast<ptrdiff_t>(std::min<size_t>(before.size(), 0x10000) - 8);
            bench.unlock();
            bench.clock.advance_us(50'000); // until the lock is off
            bench.write(kExtRom, static_cast<uint16_t>(address), data, bench.newer() ? 0x80 : 0xA0);
            Bytes half = before;
            std::copy_n(data.begin(), 2, half.begin() + address);
            Bytes whole = half;
            std::ranges::copy(data, whole.begin() + address);
            ASSERT_TRUE(std::ranges::equal(bench.chip.rom, whole)) << model;

            power_cycle ? bench.chip.power_cycle() : bench.chip.restart();
            EXPECT_EQ(bench.chip.firmware.external, power_cycle) << model;
            EXPECT_EQ(bench.chip.flash_status(),
                      bench.has_flash() ? (power_cycle ? 0x8C : 0x03) : 0x00);
            EXPECT_TRUE(std::ranges::equal(bench.chip.rom, power_cycle ? half : whole)) << model;

            bench.clock.advance_us(10'000);
            bench.chip.restart();
            EXPECT_TRUE(bench.chip.firmware.external) << model;
            EXPECT_EQ(bench.chip.flash_status(), bench.has_flash() ? 0x8C : 0x00) << model;
        }
    }
}

TEST(Images, AreTheSameOnEveryMachineAndNeverEndInAnErasedByte)
{
    // clang-format off
    const std::map<std::string_view, uint32_t> factory_checksums = {
        {"rowan-spi", 0x46EA1A9D},
        {"cedar-spi", 0x54FA494B},
        {"larch-spi", 0xEE56537A},
        {"hawthorn-eeprom", 0x7FB358F7},
        {"willow-eeprom", 0x74BD044A},
        {"fi2-spi", 0x94126F2E},
    };
    // clang-format on
    for (const auto& [name, checksum] : factory_checksums) {
        const CameraModel& model = *find_model(name);
        EXPECT_EQ(image_checksum(make_firmware_image(factory_image_request(model))), checksum)
            << name;
    }
    ImageRequest request = factory_image_request(models()[0]);
    for (const uint32_t size : {0U, 0x80U, 0x81U, 32768U, 99999U}) {
        for (request.seed = 0; request.seed < 40; request.seed += 1) {
            request.image_bytes = size;
            const Bytes image = make_firmware_image(request);
            ASSERT_EQ(image.size(), std::clamp(size, 0x80U, 32768U));
            ASSERT_NE(image.back(), 0xFF);
            ASSERT_TRUE(boot(models()[0], image).external);
        }
    }
}

TEST(Images, AnMfiImageLeadsToItsSerialNumberTwice)
{
    const std::string serial = "NX0012345678";
    const Bytes image = make_mfi_image(7, serial);
    ASSERT_LE(image.size(), 4096U);
    EXPECT_NE(image.back(), 0xFF);
    EXPECT_EQ(image, make_mfi_image(7, serial));
    EXPECT_NE(image, make_mfi_image(8, serial));
    const auto be16 = [&image](size_t at) { return image.at(at) << 8 | image.at(at + 1); };

    const auto descriptor = static_cast<size_t>(be16(0x10) - kMfiRomAddress);
    EXPECT_EQ(static_cast<size_t>(be16(0x0E)), 2 + 2 * serial.size());
    EXPECT_EQ(image.at(descriptor), 2 + 2 * serial.size());
    EXPECT_EQ(image.at(descriptor + 1), 0x03);
    EXPECT_EQ(image.at(descriptor + 2), 'N');
    EXPECT_EQ(image.at(descriptor + 3), 0);

    auto record = static_cast<size_t>(be16(0x04) - kMfiRomAddress);
    int passed = 0;
    while (be16(record + 2) != 3 && static_cast<size_t>(be16(0x02)) > record) {
        record += static_cast<size_t>(be16(record));
        ++passed;
    }
    EXPECT_EQ(passed, 2);
    const auto text = image.begin() + static_cast<ptrdiff_t>(record) + 4;
    EXPECT_EQ(std::string(text, text + static_cast<ptrdiff_t>(serial.size())), serial);
}

} // namespace sim
