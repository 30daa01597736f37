// SPDX-License-Identifier: Apache-2.0
// What is kept belongs to one unit, and its journal says what state the ROM is in.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>

#include "bench.h"
#include "files/descriptor.h"

namespace {

using engine::Reason;
using engine::RomContents;
using engine::RomRecord;
using engine::Started;
namespace fs = std::filesystem;

const engine::UpgradeOptions kAlways = {.always = true};
constexpr char kBreaksOff[] =
    R"(fault = [{when = {rom_address = 0x2000, request = "SET_CUR", count = 2}, do = "io-error"}])";

engine::Camera opened(const nyxus::CameraInfo& info)
{
    auto camera = engine::Camera::open(info);
    EXPECT_TRUE(camera) << camera.status().text();
    hold_device(*camera);
    return *std::move(camera);
}

engine::Camera restarted(Bench& bench, engine::Camera camera)
{
    auto returned = engine::restart(std::move(camera), 5, bench.backups, {});
    EXPECT_TRUE(returned) << returned.status().text();
    hold_device(*returned);
    return *std::move(returned);
}

Reason recovery_of(const engine::Camera& camera, const engine::Backups& backups)
{
    return engine::find_recovery(camera, backups, "", false).status().reason();
}

std::string text_of(const fs::path& file)
{
    std::ifstream stream(file);
    return {std::istreambuf_iterator<char>(stream), {}};
}

void replace_in(const fs::path& file, const std::string& from, const std::string& to)
{
    std::string text = text_of(file);
    ASSERT_NE(text.find(from), std::string::npos) << file;
    std::ofstream(file) << text.replace(text.find(from), from.size(), to);
}

/// The one unit's folder.
fs::path unit_folder(const Bench& bench)
{
    return *fs::directory_iterator(bench.backups.state_folder() / "units");
}

TEST(EngineUnits, CamerasOfOneNumberKeepApart)
{
    Bench bench{models::kRowan};
    const sim::CameraModel& model = *sim::find_model(models::kRowan);
    bench.simulated.bed().plug(model, {.serial = "TWIN"});
    bench.simulated.bed().plug(model, {.serial = "TWIN"});
    const auto infos = *nyxus::list_cameras();
    ASSERT_EQ(infos.size(), 3u);
    engine::Camera one = opened(infos[1]);
    engine::Camera other = opened(infos[2]);
    ASSERT_TRUE(bench.upgrade(one, images_for(models::kRowan)).status);
    ASSERT_TRUE(engine::erase(other, bench.backups, {}, false).status);
    EXPECT_EQ(bench.backups.history(one).rom, RomRecord::kVerified);
    EXPECT_EQ(bench.backups.history(other).rom, RomRecord::kBlank);
    EXPECT_EQ(recovery_of(other, bench.backups), Reason::kNoBackup) << "never the other one's";
    ASSERT_TRUE(bench.upgrade(one, images_for(models::kRowan), kAlways).status);
    EXPECT_EQ(bench.backups.history(infos[2]).rom, RomRecord::kBlank) << "its mark stays";
}

TEST(EngineUnits, ABackupFromBeforeTheNumberWasSharedIsAsked)
{
    Bench bench{models::kRowan};
    const sim::CameraModel& model = *sim::find_model(models::kRowan);
    bench.simulated.bed().plug(model, {.serial = "TWIN"});
    {
        engine::Camera camera = opened(nyxus::list_cameras()->back());
        ASSERT_TRUE(bench.upgrade(camera, images_for(models::kRowan)).status);
    }
    bench.simulated.bed().plug(model, {.serial = "TWIN"});
    engine::Camera second = opened(nyxus::list_cameras()->back());
    ASSERT_TRUE(engine::erase(second, bench.backups, {}, false).status);
    EXPECT_EQ(recovery_of(second, bench.backups), Reason::kUncertainBackup);
    EXPECT_EQ(bench.backups.candidates(second).size(), 1u);
}

TEST(EngineUnits, AUnitIsKnownInAnotherPort)
{
    Bench bench{models::kRowan};
    {
        engine::Camera camera = bench.open();
        ASSERT_TRUE(bench.upgrade(camera, images_for(models::kRowan)).status);
    }
    sim::TestBed& bed = bench.simulated.bed();
    bed.unplug(bench.simulated.sim());
    bed.replug(bench.simulated.sim(), 3);
    engine::Camera camera = bench.open();
    EXPECT_EQ(camera.info().port_path, "1-3");
    const auto latest = bench.backups.latest(camera);
    ASSERT_TRUE(latest) << latest.status().text();
    EXPECT_EQ(latest->port, "1-1");
}

TEST(EngineUnits, TheSequenceSaysWhatIsLatestAndLinksAreNotFollowed)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    ASSERT_TRUE(bench.upgrade(camera, images_for(models::kRowan)).status);
    camera = restarted(bench, std::move(camera));
    ASSERT_TRUE(bench.upgrade(camera, images_for(models::kRowan), kAlways).status);
    const auto both = *bench.backups.list();
    ASSERT_EQ(both.size(), 2u);
    EXPECT_EQ(both[1].started, Started::kYes);
    replace_in(unit_folder(bench) / "000001.json", both[0].time, "2099-01-01T00:00:00Z");
    EXPECT_EQ(bench.backups.latest(camera)->sequence, 2u) << "whatever the clock said";

    const fs::path elsewhere = bench.folder.path() / "elsewhere";
    fs::rename(both[1].file, elsewhere);
    fs::create_symlink(elsewhere, both[1].file);
    EXPECT_EQ(bench.backups.latest(camera)->sequence, 1u) << "a link";
    fs::remove(both[1].file);
    fs::rename(elsewhere, both[1].file);
    if (geteuid() == 0) {
        ASSERT_EQ(chown(both[1].file.c_str(), 12345, 12345), 0);
        EXPECT_EQ(bench.backups.latest(camera)->sequence, 1u) << "another user's";
        ASSERT_EQ(chown(both[1].file.c_str(), 0, 0), 0);
    }
    std::ofstream(both[1].file, std::ios::app) << "more";
    EXPECT_EQ(bench.backups.latest(camera)->sequence, 1u) << "not what was kept";
    EXPECT_EQ(bench.backups.read(both[1]).status().reason(), Reason::kMismatch);
    replace_in(unit_folder(bench) / "000001.json", R"("unit": ")", R"("unit": "other-)");
    EXPECT_EQ(bench.backups.latest(camera).status().reason(), Reason::kNoBackup)
        << "facts of another unit";
}

TEST(EngineUnits, AFolderThatOthersMayWriteStopsTheUpgrade)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    const auto before = bench.simulated.rom(0, 0x10000);
    const fs::path units = bench.backups.state_folder() / "units";
    fs::create_directories(units);
    fs::permissions(units, fs::perms::others_write, fs::perm_options::add);
    for (const bool backup : {true, false}) {
        const engine::Report report =
            bench.upgrade(camera, images_for(models::kRowan), {.always = true, .backup = backup});
        EXPECT_EQ(report.status.reason(),
                  backup ? Reason::kBackupNotKept : Reason::kJournalNotKept);
        EXPECT_NE(report.status.message().find("other users may write it"), std::string::npos)
            << report.status.message();
        EXPECT_NE(report.status.message().find("nothing was written"), std::string::npos);
    }
    EXPECT_EQ(bench.simulated.rom(0, 0x10000), before);
}

constexpr uid_t kOne = 4321;
constexpr uid_t kOther = 4322;

void give_to(const fs::path& path, uid_t user)
{
    ASSERT_EQ(chown(path.c_str(), user, user), 0);
}

/// What a process of this user says.
bool is_true_for(uid_t user, const std::function<bool()>& question)
{
    const pid_t child = fork();
    if (child == 0) {
        const bool is_user = setresgid(user, user, user) == 0 && setresuid(user, user, user) == 0;
        _exit(is_user && question() ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    return status == 0;
}

TEST(EngineUnits, EachUserHasAStoreOfHisOwn)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root becomes other users";
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    ASSERT_TRUE(bench.upgrade(camera, images_for(models::kRowan)).status);
    const std::string name = bench.backups.list()->front().name;
    const fs::path others = bench.folder.path() / "others";
    fs::copy(bench.backups.state_folder(), others, fs::copy_options::recursive);
    chmod(bench.folder.path().c_str(), 0755);
    // Both stores are of one user; but what one of them holds was laid there by the other.
    for (const fs::path& store : {bench.backups.state_folder(), others}) {
        give_to(store, kOne);
        for (const fs::directory_entry& entry : fs::recursive_directory_iterator(store)) {
            const bool is_planted = store == others && entry.is_regular_file() &&
                                    entry.path().filename() != "unit.json";
            give_to(entry.path(), is_planted ? kOther : kOne);
        }
    }
    EXPECT_TRUE(is_true_for(kOne, [&] {
        const auto backup = bench.backups.find(name);
        return backup && bench.backups.read(*backup);
    }));
    EXPECT_EQ(bench.backups.list().status().reason(), Reason::kFile) << "not for root either";
    EXPECT_TRUE(is_true_for(kOther, [&] {
        const auto list = bench.backups.list();
        return list.status().reason() == Reason::kFile &&
               list.status().message().ends_with(
                   "since it belongs to user 4321: Operation not permitted");
    }));
    EXPECT_TRUE(is_true_for(kOne, [&] {
        const engine::Backups planted(others);
        return planted.list() && planted.list()->empty() &&
               planted.find(name).status().reason() == Reason::kNoBackup;
    }));
}

TEST(EngineUnits, WhatSomebodyElseHasPlantedIsNotRecovered)
{
    if (geteuid() != 0)
        GTEST_SKIP() << "only root gives files away";
    for (const char* file : {"000001.rom", "000001.json"}) {
        Bench bench{models::kRowan};
        engine::Camera camera = bench.open();
        ASSERT_TRUE(bench.upgrade(camera, images_for(models::kRowan)).status);
        EXPECT_TRUE(bench.backups.latest(camera)) << file;
        give_to(unit_folder(bench) / file, kOther);
        EXPECT_EQ(bench.backups.latest(camera).status().reason(), Reason::kNoBackup) << file;
        EXPECT_TRUE(bench.backups.candidates(camera).empty()) << file;
    }
}

TEST(EngineUnits, AStoreThatIsLockedIsNoFaultOfTheCamera)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    const engine::Images images = images_for(models::kRowan);
    ASSERT_TRUE(bench.upgrade(camera, images).status);
    const std::string folder = unit_folder(bench).string();
    const files::Descriptor lock(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ASSERT_EQ(flock(lock.get(), LOCK_EX), 0);
    const engine::Report report = bench.upgrade(camera, images, kAlways);
    EXPECT_EQ(report.status.reason(), Reason::kBackupNotKept);
    EXPECT_EQ(report.rom, RomContents::kUnchanged);
    const std::string holder =
        "(process " + std::to_string(getpid()) + ") has locked '" + folder + "' for 5 s";
    EXPECT_NE(report.status.message().find(holder), std::string::npos) << report.status.message();
}

TEST(EngineUnits, ALongJournalKeepsItsLatestLines)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    bench.set_faults(kBreaksOff);
    ASSERT_FALSE(bench.upgrade(camera, images_for(models::kRowan)).status);
    const fs::path journal = unit_folder(bench) / "journal.jsonl";
    const std::string lines = text_of(journal);
    for (std::ofstream file(journal); file.tellp() < 0x21000;)
        file << lines;
    bench.set_faults(kBreaksOff);
    ASSERT_FALSE(bench.upgrade(camera, images_for(models::kRowan)).status);
    const std::string kept = text_of(journal);
    const auto count = std::ranges::count(kept, '\n');
    EXPECT_TRUE(count > 100 && count < 110) << count;
    EXPECT_EQ(bench.backups.history(camera).rom, RomRecord::kIncomplete);
}

TEST(EngineUnits, TheJournalTellsOfAnIncompleteRomWhileTheCameraStillRuns)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    EXPECT_EQ(bench.backups.history(camera).rom, RomRecord::kNone);
    EXPECT_EQ(recovery_of(camera, bench.backups), Reason::kNothingToRecover);
    const auto factory = bench.simulated.rom(0, 0x8000);
    bench.set_faults(kBreaksOff);
    const engine::Report report = bench.upgrade(camera, images_for(models::kRowan));
    ASSERT_EQ(report.rom, RomContents::kIncomplete) << report.status.text();
    ASSERT_TRUE(camera.runs_external_firmware()) << "from its memory";
    const engine::RomHistory history = bench.backups.history(camera);
    EXPECT_EQ(history.rom, RomRecord::kIncomplete);
    EXPECT_EQ(history.backup, report.backup);
    EXPECT_EQ(history.since.size(), 20u);
    // A line that a power cut has torn.
    std::ofstream(unit_folder(bench) / "journal.jsonl", std::ios::app) << R"({"time": "20)";
    EXPECT_EQ(bench.backups.history(camera.info()).rom, RomRecord::kIncomplete);
    bench.set_faults("fault = []");
    const auto recovery = engine::find_recovery(camera, bench.backups, "", false);
    ASSERT_TRUE(recovery) << recovery.status().text();
    ASSERT_TRUE(bench.upgrade(camera, recovery->images, kAlways).status);
    EXPECT_EQ(bench.simulated.rom(0, 0x8000), factory);
    EXPECT_EQ(bench.backups.history(camera).rom, RomRecord::kVerified);
    camera = restarted(bench, std::move(camera));
    EXPECT_EQ(bench.backups.history(camera).rom, RomRecord::kStarted);
}

TEST(EngineUnits, AnUpgradeThatFindsItsImageSaysSo)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    ASSERT_TRUE(bench.upgrade(camera, images_for(models::kRowan)).status);
    // As if it had been killed right before its last steps.
    const fs::path journal = unit_folder(bench) / "journal.jsonl";
    const std::string text = text_of(journal);
    std::ofstream(journal) << text.substr(0, text.rfind('\n', text.find("\"written\"")) + 1);
    EXPECT_EQ(bench.backups.history(camera).rom, RomRecord::kIncomplete);
    EXPECT_TRUE(bench.upgrade(camera, images_for(models::kRowan)).up_to_date);
    EXPECT_EQ(bench.backups.history(camera).rom, RomRecord::kVerified);
}

TEST(EngineUnits, ReadingBackThatFailsLeavesTheRomWritten)
{
    Bench bench{models::kHawthorn};
    engine::Camera camera = bench.open();
    // The camera goes on refusing, so that trying again does not help.
    bench.set_faults(
        R"(fault = [{when = {rom_address = 0x1000, request = "GET_CUR", count = [1, 50]}, do = "io-error"}])");
    const engine::Report report =
        bench.upgrade(camera, images_for(models::kHawthorn), {.always = true, .backup = false});
    bench.set_faults("fault = []");
    ASSERT_FALSE(report.status);
    EXPECT_EQ(report.rom, RomContents::kUnverified) << report.status.text();
    EXPECT_EQ(bench.backups.history(camera).rom, RomRecord::kWritten);
}

TEST(EngineUnits, WhatSomebodyElseHasChangedIsUnknown)
{
    Bench bench{models::kRowan};
    const engine::Backups others(bench.folder.path() / "other user");
    engine::Camera camera = bench.open();
    bench.set_faults(kBreaksOff);
    ASSERT_EQ(bench.upgrade(camera, images_for(models::kRowan)).rom, RomContents::kIncomplete);
    EXPECT_EQ(others.history(camera).rom, RomRecord::kNone) << "each has a journal of his own";
    bench.set_faults("fault = []");
    sim::ImageRequest request = sim::factory_image_request(*sim::find_model(models::kRowan));
    request.version = 0x0777;
    const engine::Images images{*engine::Firmware::from(sim::make_firmware_image(request))};
    ASSERT_TRUE(engine::upgrade(camera, images, kAlways, others, {}).status);
    EXPECT_EQ(bench.backups.history(camera).rom, RomRecord::kIncomplete) << "as far as it knows";
    auto returned = engine::restart(std::move(camera), 5, others, {});
    ASSERT_TRUE(returned);
    hold_device(*returned);
    EXPECT_EQ(others.history(*returned).rom, RomRecord::kStarted);
    EXPECT_EQ(bench.backups.history(*returned).rom, RomRecord::kElsewhere);
    ASSERT_TRUE(bench.upgrade(*returned, images_for(models::kRowan), kAlways).status);
    EXPECT_EQ(bench.backups.list()->back().started, Started::kUnknown);
}

TEST(EngineUnits, ARestartIntoAnotherVersionIsAFailureOnceItIsKnown)
{
    Bench bench{models::kHawthorn};
    engine::Camera camera = bench.open();
    sim::ImageRequest request = sim::factory_image_request(*sim::find_model(models::kHawthorn));
    request.image_bytes = 4096;
    const auto image = [&](uint16_t version) {
        request.version = version;
        return engine::Images{*engine::Firmware::from(sim::make_firmware_image(request))};
    };
    for (const uint16_t version : {uint16_t{0x0777}, uint16_t{0x0888}}) {
        ASSERT_TRUE(bench.upgrade(camera, image(version), kAlways).status);
        camera = restarted(bench, std::move(camera));
        EXPECT_TRUE(engine::check_started(camera, bench.backups));
    }
    bench.set_faults(R"(fault = [{when = {}, do = "lying-write"}])");
    const engine::UpgradeOptions blindly = {.always = true, .backup = false, .verify = false};
    ASSERT_TRUE(bench.upgrade(camera, image(0x0777), blindly).status);
    camera = restarted(bench, std::move(camera));
    const engine::Status started = engine::check_started(camera, bench.backups);
    EXPECT_EQ(started.reason(), Reason::kNotStarted) << started.text();
    EXPECT_NE(started.message().find("firmware 0x0888"), std::string::npos) << started.message();
}

TEST(EngineUnits, ANewSerialNumberMakesNoNewUnit)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    const sim::CameraModel& model = *sim::find_model(models::kRowan);
    ASSERT_TRUE(bench.upgrade(camera, images_with_mfi(model, "NEWSERIAL")).status);
    camera = restarted(bench, std::move(camera));
    ASSERT_EQ(camera.info().serial, "NEWSERIAL");
    EXPECT_EQ(bench.backups.history(camera).rom, RomRecord::kStarted);
    ASSERT_TRUE(engine::erase(camera, bench.backups, {}, false).status);
    camera.close();
    sim::TestBed& bed = bench.simulated.bed();
    bed.unplug(bench.simulated.sim());
    bed.replug(bench.simulated.sim());
    camera = bench.open();
    ASSERT_NE(camera.info().serial, "NEWSERIAL") << "it has lost its own";
    EXPECT_EQ(bench.backups.history(camera).rom, RomRecord::kBlank);
    EXPECT_TRUE(bench.backups.latest(camera));
    const fs::directory_iterator units(bench.backups.state_folder() / "units");
    EXPECT_EQ(std::distance(begin(units), end(units)), 1);
}

TEST(EngineUnits, PruningLeavesWhatIsNeeded)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    for (int i = 0; i < 4; ++i)
        ASSERT_TRUE(bench.upgrade(camera, images_for(models::kRowan), kAlways).status);
    ASSERT_EQ(bench.backups.list()->size(), 4u);
    EXPECT_EQ(bench.backups.prune(1, true)->size(), 2u);
    EXPECT_EQ(bench.backups.list()->size(), 4u) << "only told";
    ASSERT_EQ(bench.backups.prune(1, false)->size(), 2u);
    const auto left = *bench.backups.list();
    ASSERT_EQ(left.size(), 2u);
    EXPECT_EQ(left[0].started, Started::kYes) << "the factory's";
    EXPECT_EQ(left[1].sequence, 4u);
}

TEST(EngineUnits, BackupsOfEarlierVersionsAreCandidates)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open();
    const fs::path old = bench.backups.state_folder() / "backups";
    fs::create_directories(old);
    const auto rom = bench.simulated.rom(0, 0x10000);
    for (const char* suffix : {"-20260501T120000Za.rom", "-20260501T120000Zb.rom-unproven"}) {
        std::ofstream(old / (camera.info().serial + suffix), std::ios::binary)
            .write(reinterpret_cast<const char*>(rom.data()),
                   static_cast<std::streamsize>(rom.size()));
    }
    std::ofstream(old / (camera.info().serial + "X-20260501T120000Za.rom")) << "another's";
    EXPECT_EQ(bench.backups.list()->size(), 3u);
    EXPECT_EQ(bench.backups.latest(camera).status().reason(), Reason::kUncertainBackup);
    const auto candidates = bench.backups.candidates(camera);
    ASSERT_EQ(candidates.size(), 1u);
    EXPECT_EQ(candidates[0].started, Started::kUnknown);
    EXPECT_EQ(candidates[0].time, "2026-05-01T12:00:00Z");
    EXPECT_TRUE(engine::find_recovery(camera, bench.backups, candidates[0].file, true));
}

} // namespace
