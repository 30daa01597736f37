// SPDX-License-Identifier: Apache-2.0
// Tests of the application on simulated cameras. Run them by ctest, or start gate_test.
#include "gate.h"

#include <nyxus/nyxus.hpp>
#include <nyxus/simulator_gtest.hpp>

#include <chrono>
#include <cstdio>
#include <string>

using nyxus::simulator::Camera;
using Gate = nyxus::simulator::Test;

namespace {

// What the firmware holds is in force when the camera has started with it.
void install_firmware(const nyxus::simulator::Bus& bus, const Camera& camera, std::uint16_t version)
{
    camera.set_rom(bus.image(camera.state().model, version));
    camera.replug();
}

std::string output_of(const std::string& command)
{
    std::string output;
    FILE* pipe = popen(command.c_str(), "r");
    char line[256];
    while (pipe != nullptr && std::fgets(line, sizeof line, pipe) != nullptr)
        output += line;
    if (pipe != nullptr)
        pclose(pipe);
    return output;
}

} // namespace

TEST_F(Gate, WithoutCamerasHasNothingToReport)
{
    EXPECT_EQ(gate::report(gate::inspect({"A1"})), "");
}

TEST_F(Gate, KnowsItsCamerasBySerialNumberAndFirmware)
{
    const Camera recent = bus.plug("rowan-spi,serial=A1");
    bus.plug("hawthorn-eeprom,serial=A2"); // firmware 0x0100 from the factory
    bus.plug("rowan-spi,serial=B7");
    install_firmware(bus, recent, 0x0205);
    EXPECT_EQ(gate::report(gate::inspect({"A1", "A2"})), "A1: fit\nA2: outdated\nB7: unknown\n");
}

TEST_F(Gate, LeavesForeignCamerasAlone)
{
    const Camera foreign = bus.plug("rowan-spi,serial=B7");
    foreign.forget_transfers();
    (void)gate::inspect({"A1"});
    for (const auto& transfer : foreign.transfers())
        EXPECT_EQ(transfer.request_type & 0x60, 0) << "only standard requests";
}

TEST_F(Gate, TellsOfACameraThatFails)
{
    const Camera camera = bus.plug("rowan-spi,serial=A1");
    camera.set_faults(R"(
        [[fault]]
        when = { transfer = [10] }
        do = "stall"
    )");
    EXPECT_EQ(gate::inspect({"A1"}).front().verdict, gate::Verdict::kBroken);
}

TEST_F(Gate, GoesOnWhenACameraIsUnpluggedInTheMiddle)
{
    bus.plug("rowan-spi,serial=A1").set_faults(R"(
        [[fault]]
        when = { transfer = 12 }
        do = "unplug"
    )");
    install_firmware(bus, bus.plug("rowan-spi,serial=A2"), 0x0205);
    const auto findings = gate::inspect({"A1", "A2"});
    ASSERT_EQ(findings.size(), 2u);
    EXPECT_EQ(findings[0].verdict, gate::Verdict::kBroken);
    EXPECT_EQ(findings[1].verdict, gate::Verdict::kFit);
}

TEST_F(Gate, TakesNoTimeToLookAtASlowCamera)
{
    const Camera camera = bus.plug("rowan-spi,serial=A1");
    const auto before = bus.now();
    (void)gate::inspect({camera.serial()});
    EXPECT_GT(bus.now(), before) << "transfers take their time on the cameras' clock";
    bus.advance(std::chrono::hours(24));
    EXPECT_GE(bus.now() - before, std::chrono::hours(24));
}

// Programs that a test starts see the same cameras.
TEST_F(Gate, TheProgramReportsTheSame)
{
    bus.plug("rowan-spi,serial=A1");
    EXPECT_EQ(output_of(GATE_CAMERAS " A1"), "A1: outdated\n");
}
