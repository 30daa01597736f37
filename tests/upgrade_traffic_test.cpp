// SPDX-License-Identifier: Apache-2.0
// An upgrade issues exactly the control transfers that its steps need, on every model.
#include <gtest/gtest.h>

#include <algorithm>

#include "support/camera.h"
#include "support/script.h"

namespace {

using Pace = Script::Pace;

struct Upgrade {
    std::string_view model;
    bool wide;
    Pace pace;
    bool chip_erase;
    bool gpio;
};

void unlock(Script& script, const Upgrade& u)
{
    if (u.gpio) {
        script.gpio0(true)
            .spi_command({0x06})
            .spi_command({0x50})
            .set(0x12, {0x80, 0, 0, 0x00})
            .poll_status(0x04, 0x00);
    } else if (u.pace != Pace::kNone) {
        script.get(0x0E)
            .set(0x0E, {0})
            .get(0x0E)
            .set(0x12, {0x80, 0, 0, 0x00})
            .poll_status(0x0C, 0x00);
    } else {
        script.set(0x0E, {0});
    }
}

void erase(Script& script, const Upgrade& u)
{
    if (u.pace == Pace::kNone)
        return;
    if (u.chip_erase) {
        script.set(0x0E, {0}).set(0x03, {0x40}).set(0x0E, {1});
    } else {
        script.spi_command({0x06})
            .spi_command({0xD8, 0, 0, 0})
            .poll_status(1, 0)
            .spi_command({0x04});
    }
    script.poll_status(0x01, 0x00);
}

void lock(Script& script, const Upgrade& u)
{
    if (u.gpio) {
        script.spi_command({0x06})
            .spi_command({0x50})
            .set(0x12, {0x80, 0, 0, 0x9C})
            .poll_status(0x04, 0x04)
            .gpio0(false, 0x80, 0x01, 0x01);
    } else if (u.pace != Pace::kNone) {
        script.set(0x12, {0x80, 0, 0, 0x8C}).set(0x0E, {1}).poll_status(0x0C, 0x0C);
    } else {
        script.set(0x0E, {1});
    }
}

constexpr Upgrade kUpgrades[] = {
    {models::kRowan, true, Pace::kBusReady, true, false},
    {models::kCedar, true, Pace::kBusReady, false, false},
    {models::kFi2, true, Pace::kBusReady, true, false},
    {models::kLarch, false, Pace::kReleaseAndBusReady, true, true},
    {models::kWillow, true, Pace::kNone, false, false},
    {models::kHawthorn, false, Pace::kNone, false, false},
};

} // namespace

class UpgradeTraffic : public testing::TestWithParam<Upgrade> {};

TEST_P(UpgradeTraffic, IsWhatTheStepsNeedAndNothingElse)
{
    const Upgrade& u = GetParam();
    Camera camera{u.model};
    NyDevice* device = camera.device();
    const auto image = load_image(u.model, 32768);
    nyxus_write_cycle_time = 5;

    camera.listen();
    ASSERT_EQ(MP_FwUpgrade(device, nullptr), 0) << nyxus_errmsg;
    Script script;
    unlock(script, u);
    erase(script, u);
    script.rom_write(0x0040, {image.begin() + 0x40, image.end()}, u.wide, u.pace);
    script.rom_write(0x0000, {image.begin(), image.begin() + 0x40}, u.wide, u.pace);
    lock(script, u);
    const auto transfers = camera.sim().transfers();
    EXPECT_EQ(script.match(transfers), "");
    EXPECT_EQ(transfers.size(), script.transfers_at_least() + script.extra_polls());

    // Chunks of a transfer never wait for the one before: a bus-ready poll finds the flash idle.
    const size_t chunks = 32768 / (u.wide ? 32 : 8);
    const size_t per_chunk = u.pace == Pace::kNone ? 1 : u.pace == Pace::kBusReady ? 3 : 4;
    EXPECT_GE(script.transfers_at_least(), chunks * per_chunk);
    EXPECT_EQ(camera.rom(0, 32768), image);
    RecordProperty("transfers", std::to_string(transfers.size()));
}

INSTANTIATE_TEST_SUITE_P(Models, UpgradeTraffic, testing::ValuesIn(kUpgrades),
                         [](const auto& instance) {
                             std::string name{instance.param.model};
                             name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
                             return name;
                         });
