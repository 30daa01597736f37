// SPDX-License-Identifier: Apache-2.0
/**
 * @file
 * A fixture for GoogleTest around nyxus/simulator.hpp. Link "nyxus::simulator" and
 * GTest::gtest_main.
 *
 *     using Door = nyxus::simulator::Test;
 *
 *     TEST_F(Door, ShowsTheSerialNumber)
 *     {
 *         bus.plug("rowan-spi,serial=A1");
 *         EXPECT_EQ(door::inventory(), "A1\n");
 *     }
 *
 * Each test begins with an empty bus, whatever the one before has left there. A planned fault that
 * never happened fails its test, which would have passed for nothing.
 */
#ifndef NYXUS_SIMULATOR_GTEST_HPP
#define NYXUS_SIMULATOR_GTEST_HPP

#include <nyxus/simulator.hpp>

#include <gtest/gtest.h>

namespace nyxus::simulator {

/// A test with a simulated bus of its own. A class derived from it calls this TearDown().
class Test : public ::testing::Test {
protected:
    void TearDown() override
    {
        for (const Fault& fault : bus.faults())
            EXPECT_GT(fault.strikes, 0u) << fault.name << " never happened";
    }

    Bus bus;
};

} // namespace nyxus::simulator

#endif
