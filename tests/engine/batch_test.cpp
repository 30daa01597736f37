// SPDX-License-Identifier: Apache-2.0
// Batches: what is said of helper programs that die, hang or are stopped, and that they disturb no
// other; and a real one, for which the program is started with simulated cameras.
#include <gtest/gtest.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <nyxus/engine.hpp>

#include "cameras/shipped.h"
#include "chip/firmware_image.h"
#include "files/pipe.h"

namespace {

namespace engine = nyxus::engine;
using engine::Reason;
using engine::RomContents;

class Folder {
public:
    Folder() { path_ = mkdtemp(name_.data()); }
    ~Folder() { std::filesystem::remove_all(path_); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    const std::filesystem::path& path() const { return path_; }

private:
    std::string name_ = (std::filesystem::temp_directory_path() / "nyxus-test-XXXXXX").string();
    std::filesystem::path path_;
};

/// A helper that does what its camera's port says, in shell.
constexpr char kScript[] = R"(#!/bin/sh
exec 4>&0
none='"status":{"reason":"none","message":"","code":0,"where":""}'
outlook='{"event":"outlook","phase":"reading","done":0,"total":0,"seconds":0,"rom":"incomplete",'\
'"stop_waits":true,"certain":true,"text":"","version":"",'$none'}'
report='{"report":{'$none',"rom":"new","up_to_date":false,"stopped":false,'\
'"left_unlocked":false,"backup":"","bytes":7,"version_before":"0x0100","version_after":"","kept":[]}}'
say() { echo "$1" >&4; }
read -r order
case $order in
*'"works"'*) say "$report" ;;
*'"exits"'*) exit 3 ;;
*'"crashes"'*) echo "what it printed last"; say "$outlook"; kill -SEGV $$ ;;
*'"hangs"'*) exec sleep 100 ;;
*'"is held"'*) say "$outlook"; echo $$ >"$0.pid"; exec sleep 100 ;;
*'"halts"'*) say "$outlook"; kill -STOP $$ ;;
*'"raves"'*) head -c 200000 /dev/zero | tr '\0' '{' >&4; say '{"event":1}' ;;
*'"obeys"'*) read -r stop; [ "$stop" = '{"stop":true}' ] && say "$report" ;;
esac
)";

struct Listener : engine::BatchListener {
    explicit Listener(size_t cameras) : reports(cameras), starts(cameras) {}

    void started(size_t camera) override
    {
        ++starts[camera];
        at_once = std::max(at_once, ++running);
        if (on_start)
            on_start();
    }
    void tell(size_t /*camera*/, const engine::Event& /*event*/) override {}
    void said(size_t /*camera*/, const std::string& /*line*/) override {}
    void ended(size_t camera, const engine::BatchReport& report) override
    {
        running -= report.started ? 1 : 0;
        ended_in.push_back(camera);
        reports[camera] = report;
    }
    void tick() override
    {
        pid_t pid = 0;
        if (on_held && std::ifstream(pid_file) >> pid)
            on_held(pid);
    }

    std::vector<engine::BatchReport> reports;
    std::vector<int> starts;
    std::vector<size_t> ended_in;
    std::function<void()> on_start;
    std::filesystem::path pid_file;
    std::function<void(pid_t)> on_held;
    int running = 0;
    int at_once = 0;
};

engine::Images images_for(std::string_view model)
{
    sim::ImageRequest request = sim::factory_image_request(*sim::find_model(model));
    request.version = 0x0205;
    request.image_bytes = 4096;
    return {*engine::Firmware::from(sim::make_firmware_image(request))};
}

/// A batch of cameras that are scripts.
Listener run(const std::vector<std::string>& ports, engine::BatchOptions options = {},
             const engine::BatchStop& stop = {}, const std::function<void()>& on_start = {},
             const std::function<void(pid_t)>& on_held = {})
{
    const Folder folder;
    options.helper = folder.path() / "helper";
    std::ofstream(options.helper) << kScript;
    chmod(options.helper.c_str(), 0755);
    const std::vector<engine::ChipImages> images = {{"", images_for("rowan-spi")}};
    std::vector<engine::BatchCamera> cameras;
    for (const std::string& port : ports)
        cameras.push_back({port, &images});
    Listener listener(cameras.size());
    listener.on_start = on_start;
    listener.pid_file = options.helper + ".pid";
    listener.on_held = on_held;
    engine::run_batch(cameras, options, engine::Backups(folder.path()), listener, stop);
    return listener;
}

TEST(EngineBatch, AHelperThatFailsIsReportedAndDisturbsNoOther)
{
    const struct {
        const char* port;
        Reason reason;
        RomContents rom;
        const char* message;
    } cases[] = {
        {"works", Reason::kNone, RomContents::kNew, ""},
        {"exits", Reason::kOther, RomContents::kUnchanged, "ended with exit code 3"},
        {"crashes", Reason::kOther, RomContents::kIncomplete, "signal 11 (Segmentation fault)"},
        {"hangs", Reason::kTimedOut, RomContents::kUnchanged, "silent for 3 s"},
        {"halts", Reason::kTimedOut, RomContents::kUnknown,
         "silent for 3 s; a signal has stopped it"},
        {"raves", Reason::kOther, RomContents::kUnchanged, "ended with exit code 0"},
    };
    std::vector<std::string> ports;
    for (const auto& c : cases)
        ports.emplace_back(c.port);
    const Listener batch = run(ports, {.silence_s = 3});
    for (size_t i = 0; i < std::size(cases); ++i) {
        const engine::BatchReport& report = batch.reports[i];
        EXPECT_TRUE(report.started);
        EXPECT_EQ(report.status.reason(), cases[i].reason) << cases[i].port << report.status.text();
        EXPECT_EQ(report.rom, cases[i].rom) << cases[i].port;
        EXPECT_NE(report.status.message().find(cases[i].message), std::string::npos)
            << report.status.text();
    }
    EXPECT_EQ(batch.reports[0].bytes, 7u);
    EXPECT_EQ(batch.reports[2].said, std::vector<std::string>{"what it printed last"});
}

/// A process that traces another one: that cannot be reaped, as if the kernel held it.
class Tracer {
public:
    explicit Tracer(pid_t traced)
    {
        files::Pipe ready = files::make_pipe();
        pid_ = fork();
        if (pid_ == 0) {
            const char said = ptrace(PTRACE_SEIZE, traced, nullptr, nullptr) == 0 ? 'y' : 'n';
            (void)!write(ready.write_end.get(), &said, 1);
            for (;;)
                pause();
        }
        char said = 'n';
        works_ = read(ready.read_end.get(), &said, 1) == 1 && said == 'y';
    }
    ~Tracer()
    {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    Tracer(const Tracer&) = delete;
    Tracer& operator=(const Tracer&) = delete;
    bool works() const { return works_; }

private:
    pid_t pid_ = -1;
    bool works_ = false;
};

TEST(EngineBatch, NobodyKnowsWhatTheRomHoldsOfAHelperThatTheKernelHolds)
{
    std::optional<Tracer> tracer;
    const Listener batch = run({"is held"}, {.silence_s = 1}, {}, {}, [&](pid_t helper) {
        if (!tracer)
            tracer.emplace(helper);
    });
    if (!tracer || !tracer->works())
        GTEST_SKIP() << "no process may trace another one here";
    EXPECT_EQ(batch.reports[0].status.reason(), Reason::kTimedOut);
    EXPECT_EQ(batch.reports[0].rom, RomContents::kUnknown);
}

TEST(EngineBatch, StartsSoManyAtOnceAndEachOnce)
{
    const Listener batch = run({"exits", "works", "exits", "exits", "works"}, {.at_once = 2});
    EXPECT_EQ(batch.at_once, 2);
    EXPECT_EQ(batch.starts, std::vector<int>(5, 1));
    EXPECT_EQ(batch.ended_in.size(), 5u);
}

TEST(EngineBatch, AStopIsPassedOnAndEndsProcessesOnlyWhenTheyShallEndAtOnce)
{
    for (const bool at_once : {false, true}) {
        std::stop_source source;
        const engine::BatchStop stop = at_once ? engine::BatchStop{.at_once = source.get_token()}
                                               : engine::BatchStop{.soon = source.get_token()};
        const Listener batch =
            run({"obeys", "works"}, {.at_once = 1}, stop, [&] { source.request_stop(); });
        EXPECT_EQ(batch.reports[0].status.reason(), at_once ? Reason::kStopped : Reason::kNone);
        EXPECT_EQ(batch.reports[0].stopped, at_once);
        EXPECT_FALSE(batch.reports[1].started);
        EXPECT_EQ(batch.reports[1].status.reason(), Reason::kStopped);
        EXPECT_EQ(batch.reports[1].rom, RomContents::kUnchanged);
    }
}

TEST(EngineBatch, AHelperThatCannotBeStartedIsAFailureOfItsCamera)
{
    const std::vector<engine::ChipImages> images = {{"", images_for("rowan-spi")}};
    Listener listener(1);
    engine::run_batch({{"1-1", &images}}, {.helper = "/dev/null"}, engine::Backups(), listener);
    EXPECT_EQ(listener.reports[0].status.reason(), Reason::kOther);
    EXPECT_NE(listener.reports[0].status.message().find("Permission denied"), std::string::npos);
}

// Needs a rowan-spi and a hawthorn-eeprom.
TEST(EngineBatchOnCameras, EachGetsItsOwnImagesAndStarts)
{
    const auto cameras = *nyxus::list_cameras();
    ASSERT_EQ(cameras.size(), 2u);
    const Folder folder;
    std::vector<engine::ChipImages> images; // of both, each for one of them
    std::vector<engine::BatchCamera> batch;
    for (const nyxus::CameraInfo& camera : cameras) {
        images.push_back(
            {camera.product == "rowan-spi" ? "RO2" : "ZR5400", images_for(camera.product)});
        std::optional<engine::Mfi>& mfi = images.back().images.mfi;
        mfi = *engine::Mfi::from(sim::make_mfi_image(1, "AAAAAAAA"));
        ASSERT_TRUE(mfi->set_serial("UNIT000" + std::to_string(images.size())));
        batch.push_back({camera.port_path, &images});
    }
    Listener listener(batch.size());
    engine::run_batch(batch, {.restart = true}, engine::Backups(folder.path()), listener);
    for (size_t i = 0; i < cameras.size(); ++i) {
        const engine::BatchReport& report = listener.reports[i];
        EXPECT_TRUE(report.status) << report.status.text();
        EXPECT_EQ(report.rom, RomContents::kNew);
        EXPECT_EQ(report.version_before, "0x0100");
        EXPECT_EQ(report.version_after, "0x0205");
        EXPECT_EQ(report.backup.parent_path().parent_path(), folder.path() / "units");
        auto camera = engine::Camera::open(*nyxus::find_camera(cameras[i].port_path));
        ASSERT_TRUE(camera) << camera.status().text();
        EXPECT_EQ(camera->firmware_version(), 0x0205);
        const nyxus::Bytes mfi = images[i].images.mfi->bytes();
        const auto rom =
            engine::read_rom(*camera, NYXUS_MFI_ROM_ADDR, static_cast<uint32_t>(mfi.size()), {});
        EXPECT_EQ(engine::find_difference(*rom, mfi).count, 0u);
    }
}

} // namespace
