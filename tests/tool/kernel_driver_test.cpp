// SPDX-License-Identifier: Apache-2.0
// A camera that the kernel's video driver has, and has again when the program has ended.
#include "bench.h"

#include <gtest/gtest.h>

using namespace test;

namespace {

constexpr char kCamera[] = "rowan-spi,driver=uvcvideo";
constexpr char kBack[] = "the kernel's video driver has it";

/// Sends the signal to a program that reads the ROM, and looks at what has become of the camera
/// with `after`.
Outcome ended_by(const Bench& bench, const std::string& signal, const std::string& after)
{
    // Job control, because a shell without it has its background jobs ignore interrupts.
    return bench.shell(kCamera,
                       "set -m; \"$NYXUS\" dump \"$DUMP\" >\"$OUT\" 2>&1 & pid=$!\n"
                       "\"$WAIT_FOR\" '^reading' \"$OUT\" $pid; ls \"$LENT\"; kill -" +
                           signal + " $pid; wait $pid; echo \"ended with $?\"\n" + after,
                       {{"OUT", bench.path("out")},
                        {"DUMP", bench.path("dump")},
                        {"LENT", bench.state_folder() + "/nyxus/lent"}});
}

} // namespace

TEST(KernelDriver, HasTheCameraAgainAfterEveryEnd)
{
    const struct {
        const char* signal;
        const char* code;
    } cases[] = {
        {"INT", "130"},  {"TERM", "130"}, {"HUP", "130"},
        {"QUIT", "130"}, {"CONT", "0"}, // which does not end it
    };
    for (const auto& c : cases) {
        const Bench bench;
        const Outcome outcome = ended_by(bench, c.signal, "ls \"$LENT\"; \"$NYXUS\" doctor");
        EXPECT_TRUE(contains(outcome.out, std::string("1-1\nended with ") + c.code + "\nok"))
            << c.signal << outcome.out << outcome.err;
        EXPECT_TRUE(contains(outcome.out, kBack)) << c.signal << outcome.out;
    }
}

TEST(KernelDriver, IsPutBackByTheNextStartAfterAKill)
{
    const Bench bench;
    const Outcome outcome =
        ended_by(bench, "KILL", "\"$NYXUS\" list; \"$NYXUS\" doctor; ls \"$LENT\"");
    EXPECT_TRUE(contains(outcome.out, "1-1\nended with 137\n")) << outcome.out;
    EXPECT_TRUE(contains(outcome.err, "port 1-1 is back with the kernel's video driver"))
        << outcome.err;
    EXPECT_EQ(outcome.err.find("is back"), outcome.err.rfind("is back")) << "said once";
    EXPECT_TRUE(contains(outcome.out, kBack)) << outcome.out;
}

/// Its file is there, but locked.
TEST(KernelDriver, IsNotPutBackWhileAProgramHasTheCamera)
{
    const Bench bench;
    const Outcome outcome =
        bench.shell(kCamera,
                    "\"$NYXUS\" dump \"$DUMP\" >\"$OUT\" & pid=$!\n"
                    "\"$WAIT_FOR\" '^reading' \"$OUT\" $pid; \"$NYXUS\" list; wait $pid",
                    {{"OUT", bench.path("out")}, {"DUMP", bench.path("dump")}});
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    EXPECT_EQ(outcome.err, "");
}
