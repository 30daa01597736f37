// SPDX-License-Identifier: Apache-2.0
// Tests as people write them who do not take care; test_suites.sh runs them and looks at what is
// left.
#include <nyxus/nyxus.hpp>
#include <nyxus/simulator_gtest.hpp>

#include <sys/syscall.h>
#include <unistd.h>
#include <csignal>
#include <optional>
#include <string>

using nyxus::simulator::Bus;
using nyxus::simulator::Camera;
using nyxus::simulator::Error;
using Careless = nyxus::simulator::Test;

namespace {

std::string refusal_of(const Camera& camera, const std::string& faults)
{
    try {
        camera.set_faults(faults);
        return "";
    } catch (const Error& error) {
        return error.what();
    }
}

} // namespace

TEST_F(Careless, ForgetsItsCameras)
{
    static std::optional<Camera> forgotten;
    forgotten = bus.plug("rowan-spi,serial=A1");
    forgotten->set_faults("[[fault]]\nwhen = {}\ndo = \"stall\"");
    EXPECT_FALSE(nyxus::Camera::open(*nyxus::find_camera()));
}

TEST_F(Careless, FindsNothingOfTheTestBefore)
{
    EXPECT_TRUE(nyxus::list_cameras()->empty());
    EXPECT_TRUE(bus.faults().empty());
    EXPECT_EQ(bus.plug().serial(), "SIM1");
    EXPECT_EQ(nyxus::find_camera()->serial, "SIM1");
}

TEST_F(Careless, WritesNonsense)
{
    const Camera camera = bus.plug();
    EXPECT_NE(
        refusal_of(camera, "[[fault]]\nwhen = {}\ndo = \"stal\"").find("did you mean \"stall\"?"),
        std::string::npos);
    EXPECT_NE(refusal_of(camera, "[[fault]]\nwhen = { camera = 2 }\ndo = \"stall\"").find("camera"),
              std::string::npos);
    EXPECT_TRUE(bus.faults().empty());
    EXPECT_THROW(bus.plug("rowan-spj"), Error);
    EXPECT_THROW(bus.plug("rowan-spi,serial=SIM1"), Error);
    EXPECT_THROW(camera.set_rom({1}, camera.rom().size()), Error);
    EXPECT_THROW(Bus(), Error) << "a second one";
    camera.remove();
    EXPECT_THROW(camera.state(), Error);
}

TEST_F(Careless, PlugsInOneAfterTheOther)
{
    for (int i = 0; i < 20; ++i) { // more than a bus has ports
        const Camera camera = bus.plug("hawthorn-eeprom");
        ASSERT_EQ(nyxus::find_camera()->address, camera.state().address);
        camera.remove();
    }
}

TEST_F(Careless, ClosesAllDescriptors)
{
    const Camera camera = bus.plug();
    EXPECT_EQ(nyxus::list_cameras()->size(), 1u);
    syscall(SYS_close_range, 3u, ~0u, 0u);
    EXPECT_EQ(nyxus::list_cameras()->size(), 1u);
    camera.unplug();
    EXPECT_TRUE(nyxus::list_cameras()->empty());
}

TEST_F(Careless, LetsNothingHappen)
{
    bus.plug().set_faults("[[fault]]\nwhen = { transfer = 100000 }\ndo = \"stall\"");
}

TEST_F(Careless, Crashes)
{
    bus.plug();
    raise(SIGSEGV);
}

TEST_F(Careless, HangsUntilItIsKilled)
{
    bus.plug();
    puts("hangs");
    fflush(stdout);
    for (;;)
        pause();
}
