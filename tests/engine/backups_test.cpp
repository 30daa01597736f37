// SPDX-License-Identifier: Apache-2.0
// Backups: kept before anything is written, proven once a camera has started from them.
#include <gtest/gtest.h>
#include <nyxus/cpp/rom.hpp>

#include <fstream>

#include "bench.h"

namespace {

using engine::Proven;
using engine::Reason;

TEST(EngineBackups, TheLatestProvenOneOfACameraIsFound)
{
    const TemporaryFolder folder;
    const engine::Backups backups(folder.path());
    nyxus::CameraInfo camera;
    camera.serial = "AB/1\n";
    camera.port_path = "1-2";
    EXPECT_EQ(backups.newest(camera).status().reason(), Reason::kNoBackup);
    const uint8_t contents[] = {1, 2, 3};
    const auto first = backups.keep(camera, contents, Proven::kYes);
    const auto second = backups.keep(camera, contents, Proven::kYes);
    ASSERT_TRUE(backups.keep(camera, contents, Proven::kNo));
    ASSERT_TRUE(first && second);
    EXPECT_NE(*first, *second) << "also within a second";
    EXPECT_EQ(first->filename().string().substr(0, 6), "AB_1_-");
    EXPECT_EQ(*backups.newest(camera), *second);
    camera.serial = "AB";
    EXPECT_EQ(backups.newest(camera).status().reason(), Reason::kNoBackup);
    const auto kept = std::filesystem::directory_iterator(backups.folder());
    EXPECT_EQ(std::distance(begin(kept), end(kept)), 3) << "and no temporary file";
}

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
    EXPECT_TRUE(bench.upgrade(camera, images_for(models::kRowan), {.backup = false}).status);
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
    const auto kept = [&] { return bench.upgrade(camera, images, always).backup.extension(); };
    EXPECT_EQ(kept(), ".rom") << "the factory's";
    EXPECT_EQ(kept(), ".rom-unproven") << "what was just written";
    auto restarted = engine::restart(std::move(camera), 5, bench.backups, bench.listener.caller());
    ASSERT_TRUE(restarted) << restarted.status().text();
    camera = *std::move(restarted);
    hold_device(camera);
    EXPECT_TRUE(engine::check_started(camera));
    EXPECT_EQ(kept(), ".rom");
    bench.set_faults(R"([{"when": {}, "do": "ignored-unlock"}])");
    EXPECT_EQ(kept(), ".rom-unproven");
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
    EXPECT_EQ(engine::check_started(camera).reason(), Reason::kNotStarted);

    const auto recovery = engine::find_recovery(camera, bench.backups, "", false);
    ASSERT_TRUE(recovery) << recovery.status().text();
    const engine::Report report = bench.upgrade(camera, recovery->images, {.always = true});
    EXPECT_TRUE(report.status) << report.status.text();
    EXPECT_EQ(bench.simulated.rom(0, 0x8000), factory);
    const engine::Backups others(bench.folder.path() / "other");
    EXPECT_EQ(engine::find_recovery(camera, others, "", true).status().reason(), Reason::kNoBackup);
}

} // namespace
