// SPDX-License-Identifier: Apache-2.0
// What the doctor finds, and how cameras show that cannot be opened.
#include "bench.h"
#include "json.h"

#include <gtest/gtest.h>

using namespace test;

namespace {

/// The finding of a check.
Json finding(const Outcome& outcome, const std::string& check)
{
    const Json report = Json::parse(outcome.out);
    for (const Json& row : report["checks"]) {
        if (row["check"] == check)
            return row;
    }
    ADD_FAILURE() << "no check '" << check << "' in " << outcome.out;
    return Json::Members{};
}

TEST(Doctor, FindsNothingWhereAllIsWell)
{
    const Bench bench;
    const Outcome text = bench.nyxus({kModel, "cedar-spi"}, {"doctor"});
    EXPECT_EQ(text.exit_code, 0) << text.out << text.err;
    EXPECT_TRUE(text.out.ends_with("all is well\n")) << text.out;
    EXPECT_TRUE(contains(text.out, "libusb 1.0.")) << text.out;

    const Outcome outcome = bench.nyxus({kModel}, {"doctor", "--json"});
    const Json report = Json::parse(outcome.out);
    EXPECT_TRUE(report["well"]);
    EXPECT_TRUE(contains(report["libraries"]["libNYXUS"]["file"].text(), "libNYXUS.so.2"));
    EXPECT_TRUE(contains(finding(outcome, "bus")["what"].text(), "simulated"));
}

TEST(Doctor, NamesTheTroubleAndTheRemedy)
{
    const Bench bench;
    const Outcome absent = bench.nyxus({kModel}, {"doctor", "--json", "-c", "nobody"});
    EXPECT_EQ(absent.exit_code, 3);
    EXPECT_TRUE(contains(finding(absent, "camera")["what"].text(), "'nobody'"));

    const Outcome memory =
        run_program({kSimulator, "run", "--usbfs-memory", "16", "--", kNyxus, "doctor", "--json"});
    EXPECT_EQ(memory.exit_code, 0) << "video makes do with it";
    EXPECT_TRUE(contains(finding(memory, "USB memory")["what"].text(), "16 MiB"));

    const Outcome busy = bench.shell(kModel,
                                     R"SH("$NYXUS" motion poll --watch & user=$!
                                        for i in {1..300}; do
                                            "$NYXUS" doctor --json > "$OUT"; code=$?
                                            [ $code != 0 ] && break
                                        done
                                        "$NYXUS" list >&2
                                        kill $user; cat "$OUT"; exit $code)SH",
                                     {{"OUT", bench.path("out")}});
    EXPECT_EQ(busy.exit_code, 6) << busy.out;
    EXPECT_TRUE(contains(finding(busy, "camera 1:2")["remedy"].text(), "close it")) << busy.out;
    EXPECT_TRUE(contains(finding(busy, "camera 1:2")["what"].text(), "used: another program"));
    EXPECT_TRUE(contains(busy.err, "in use by another program")) << busy.err;
}

TEST(Watch, TellsOfACameraThatRestarts)
{
    const Bench bench;
    const Outcome outcome = bench.shell(kModel,
                                        R"SH("$NYXUS" watch --json > "$OUT" & user=$!
             "$WAIT_FOR" here "$OUT" $user && "$NYXUS" reset --wait 30 >&2 || exit 99
             for i in {1..100}; do [ $(wc -l < "$OUT") = 3 ] && break; sleep 0.1; done
             kill $user; wait $user; code=$?; cat "$OUT"; exit $code)SH",
                                        {{"OUT", bench.path("out")}});
    EXPECT_EQ(outcome.exit_code, 0) << outcome.err;
    const size_t gone = outcome.out.find("\n{\"event\":\"gone\",\"bus\":1,\"address\":2,");
    EXPECT_LT(gone, outcome.out.find("\n{\"event\":\"here\",\"bus\":1,\"address\":3,"))
        << outcome.out;
    const Outcome text = bench.nyxus({kModel}, {"watch", "--wait", "0"});
    EXPECT_TRUE(text.out.starts_with("here  1:2     1-1 ")) << text.out << text.err;
}

/// Runs nyxus as somebody who must not open the camera.
TEST(Permission, CamerasThatCannotBeOpenedAreListedWithReasonAndRemedy)
{
    const Bench bench;
    const Outcome outcome = bench.shell(kModel,
                                        R"SH(chmod -R a+rwX "$UMOCKDEV_DIR"
                       chmod 000 "$UMOCKDEV_DIR"/dev/bus/usb/*/*
                       [ "$(id -u)" != 0 ] || other="setpriv --reuid=65534 --clear-groups"
                       for command in list info doctor; do
                           $other "$NYXUS" $command 2>&1; echo "<$?>"
                       done)SH",
                                        {});
    EXPECT_TRUE(contains(outcome.out, "cannot be opened: no permission; ")) << outcome.out;
    EXPECT_TRUE(contains(outcome.out, "<0>\nnyxus: cannot open camera 1:2: no permission; "))
        << outcome.out;
    EXPECT_TRUE(contains(outcome.out, "problem  camera 1:2")) << outcome.out;
    EXPECT_TRUE(outcome.out.ends_with("<5>\n")) << outcome.out;
}

} // namespace
