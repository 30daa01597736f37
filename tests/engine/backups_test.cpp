// SPDX-License-Identifier: Apache-2.0
// Backups: kept before anything is written, proven once a camera has started from them.
#include <gtest/gtest.h>
#include <nyxus/cpp/rom.hpp>

#include <fstream>

#include "bench.h"

namespace {

using engine::Reason;

TEST(EngineBackups, AnUpgradeWritesNothingWithoutOne)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    const auto before = bench.simulated.rom(0, 0x10000);
    std::ofstream(bench.folder.path() / "state") << "in the way";
    const engine::Report report = bench.upgrade(camera, images_for(models::kRowan));
    EXPECT_EQ(report.status.reason(), Reason::kBackupNotKept);
    EXPECT_NE(report.status.message().find("Not a directory; nothing was written"),
              std::string::npos)
        << report.status.message();
    EXPECT_EQ(bench.listener.phases(), "reading reading again");
    EXPECT_EQ(bench.simulated.rom(0, 0x10000), before);
    const engine::Report without =
        bench.upgrade(camera, images_for(models::kRowan), {.backup = false});
    EXPECT_EQ(without.status.reason(), Reason::kJournalNotKept) << without.status.text();
    EXPECT_EQ(bench.simulated.rom(0, 0x10000), before);
}

TEST(EngineBackups, NoneIsKeptOfABlankRom)
{
    Bench bench{models::kRowan, std::vector<uint8_t>(0x10000, 0xFF)};
    engine::Camera camera = bench.open();
    EXPECT_EQ(camera.firmware_sentence(),
              "runs its mask ROM; the external ROM holds no firmware for this chip");
    EXPECT_EQ(bench.upgrade(camera, images_for(models::kRowan)).backup, "");
}

TEST(EngineBackups, OneIsProvenWhenTheCameraHasStartedFromIt)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    const engine::UpgradeOptions always = {.always = true};
    const engine::Images images = images_for(models::kRowan);
    const auto kept = [&] {
        const auto backup = bench.backups.find(bench.upgrade(camera, images, always).backup);
        return backup ? backup->started : engine::Started::kUnknown;
    };
    EXPECT_EQ(kept(), engine::Started::kYes) << "the factory's";
    EXPECT_EQ(kept(), engine::Started::kNo) << "what was just written";
    auto restarted = engine::restart(std::move(camera), 5, bench.backups, bench.listener.caller());
    ASSERT_TRUE(restarted) << restarted.status().text();
    camera = *std::move(restarted);
    hold_device(camera);
    EXPECT_TRUE(engine::check_started(camera, bench.backups));
    EXPECT_EQ(kept(), engine::Started::kYes);
    bench.set_faults(R"(fault = [{when = {}, do = "ignored-unlock"}])");
    EXPECT_EQ(kept(), engine::Started::kNo);
}

TEST(EngineBackups, ACameraIsRecoveredFromItsLatest)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    const auto factory = bench.simulated.rom(0, 0x8000);
    ASSERT_TRUE(bench.upgrade(camera, images_for(models::kRowan)).status);
    EXPECT_EQ(engine::find_recovery(camera, bench.backups, "", false).status().reason(),
              Reason::kNothingToRecover);
    ASSERT_TRUE(engine::erase(camera, bench.backups, {}).status);
    camera = *engine::restart(std::move(camera), 5, bench.backups, {});
    hold_device(camera);
    EXPECT_EQ(engine::check_started(camera, bench.backups).reason(), Reason::kNotStarted);

    const auto recovery = engine::find_recovery(camera, bench.backups, "", false);
    ASSERT_TRUE(recovery) << recovery.status().text();
    const engine::Report report = bench.upgrade(camera, recovery->images, {.always = true});
    EXPECT_TRUE(report.status) << report.status.text();
    EXPECT_EQ(bench.simulated.rom(0, 0x8000), factory);
    const engine::Backups others(bench.folder.path() / "other");
    EXPECT_EQ(engine::find_recovery(camera, others, "", true).status().reason(), Reason::kNoBackup);
}

} // namespace
