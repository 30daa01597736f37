// SPDX-License-Identifier: Apache-2.0
// Reads whose requests are queued, and cameras without libuvc's event thread.
#include <gtest/gtest.h>
#include <nyxus/extensions.h>
#include <nyxus/streaming.h>
#include "bench.h"

namespace {

using Sent = std::vector<std::vector<uint8_t>>;

constexpr uint32_t kSize = 0x2000;

/// What goes over the wire while a part of the ROM is read.
Sent sent_by_reading(Bench& bench, unsigned queue_depth)
{
    engine::Camera camera = bench.open(engine::Use::kTransfers);
    camera.queue_depth = queue_depth;
    bench.simulated.listen();
    const auto contents = engine::read_rom(camera, 0, kSize, {});
    EXPECT_TRUE(contents && bench.rom_begins_with(*contents));
    EXPECT_EQ(camera.queue_depth, queue_depth);
    Sent sent;
    for (const sim::Transfer& transfer : bench.simulated.sim().transfers()) {
        sent.emplace_back(transfer.setup.begin(), transfer.setup.end());
        sent.back().insert(sent.back().end(), transfer.data.begin(), transfer.data.end());
    }
    return sent;
}

TEST(EngineQueue, SendsTheSameAsOneByOneButForTheProof)
{
    for (const char* model : {"rowan-spi", "larch-spi", "hawthorn-eeprom"}) {
        Bench bench{model};
        Sent expected = sent_by_reading(bench, 1);
        const bool wide = std::string_view(model) == "larch-spi";
        const size_t width = wide ? 512 : std::string_view(model) == "rowan-spi" ? 32 : 8;
        const auto proof = static_cast<ptrdiff_t>(2 * 1024 / width);
        // The selection of the block; whether the ROM is locked, and the exchange to check by.
        const ptrdiff_t before = wide ? 4 : 1;
        const Sent again(expected.begin() + before, expected.begin() + before + proof);
        expected.insert(expected.begin() + before + proof, again.begin(), again.end());
        for (const unsigned depth : {2u, 16u, 64u})
            EXPECT_TRUE(sent_by_reading(bench, depth) == expected) << model << " " << depth;
    }
}

// Where: in the proof, in its second reading, later, and twice more when one by one.
TEST(EngineQueue, GoesOnOneByOneFromTheExchangeThatFails)
{
    for (const char* model : {"rowan-spi", "hawthorn-eeprom"}) {
        for (const char* fault :
             {R"("SET_CUR"}, do = "stall")", R"("GET_CUR"}, do = "stall")",
              R"("GET_CUR"}, do = "short", bytes = 7)", R"("SET_CUR"}, do = "short", bytes = 2)",
              R"("GET_CUR"}, do = "io-error")"}) {
            for (const int count : {140, 141, 200}) {
                Bench bench{model};
                engine::Camera camera = bench.open(engine::Use::kTransfers);
                std::string faults(fault);
                faults.insert(faults.find('}'), ", count = [" + std::to_string(count) + ", " +
                                                    std::to_string(count + 2) + "]");
                bench.set_faults(R"(fault = [{when = {selector = 3, request = )" + faults + "}]");
                const auto contents = engine::read_rom(camera, 0, kSize, bench.listener.caller());
                ASSERT_TRUE(contents) << faults << contents.status().text();
                EXPECT_TRUE(bench.rom_begins_with(*contents)) << model << faults;
                EXPECT_TRUE(bench.listener.has(engine::Event::Kind::kReadAgain)) << faults;
                EXPECT_EQ(camera.queue_depth, 1u) << model << faults;
            }
        }
    }
}

TEST(EngineQueue, IsNotUsedWhereItReadsSomethingElse)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open(engine::Use::kTransfers);
    bench.set_faults(
        R"(fault = [{when = {rom_address = [0x0200, 0x021F]}, times = 1, do = "bit-flip", mask = 1}])"); // once, so that the second one differs
    const auto contents = engine::read_rom(camera, 0, kSize, bench.listener.caller());
    ASSERT_TRUE(contents) << contents.status().text();
    EXPECT_EQ(bench.simulated.bed().fault_strikes().front(), 1u);
    EXPECT_TRUE(bench.listener.has(engine::Event::Kind::kReadAgain));
    EXPECT_EQ(camera.queue_depth, 1u);
}

// The first one in the proof, the last one among the last exchanges.
TEST(EngineQueue, ACameraThatGoesEndsAReadAtOnceAndCanBeClosed)
{
    for (const bool announced : {true, false}) {
        for (const int count : {1, 40, 100, 111, 300}) {
            Bench bench{models::kRowan};
            engine::Camera camera = bench.open(engine::Use::kTransfers);
            bench.set_faults(R"(fault = [{when = {selector = 3, count = )" + std::to_string(count) +
                             R"(}, do = "unplug", announced = )" + (announced ? "true" : "false") +
                             "}]");
            const auto contents = engine::read_rom(camera, 0, kSize, {});
            EXPECT_EQ(contents.status().reason(), engine::Reason::kCameraGone)
                << announced << count;
            camera.close();
        }
    }
}

TEST(EngineQueue, WithoutAnEventThreadNothingStreams)
{
    Bench bench{models::kRowan};
    engine::Camera camera = bench.open(engine::Use::kTransfers);
    ASSERT_NE(nyxus_usb_context(camera.device()), nullptr);
    NyStreamRequest request{};
    NyStream* stream = nullptr;
    EXPECT_LT(nyxus_stream_start(camera.device(), &request, nullptr, nullptr, &stream), 0);
    EXPECT_EQ(stream, nullptr);
    camera.close();
    engine::Camera other = bench.open();
    EXPECT_EQ(nyxus_usb_context(other.device()), nullptr);
}

} // namespace
