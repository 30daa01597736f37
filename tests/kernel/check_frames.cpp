// SPDX-License-Identifier: Apache-2.0
// check_frames FILE WIDTH HEIGHT COUNT: whether a YUYV file holds at least that many frames, each
// of them the simulated camera's picture to the last byte, numbered in rising order.
#include "chip/canvas.h"
#include "chip/picture.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <optional>
#include <vector>

namespace {

std::vector<uint8_t> expected_frame(uint32_t width, uint32_t height, uint32_t number)
{
    std::vector<uint8_t> yuyv(size_t{width} * height * 2);
    sim::Canvas canvas(width, height, yuyv);
    sim::draw_test_pattern(canvas);
    sim::draw_frame_number(canvas, number);
    return yuyv;
}

int check(std::ifstream& file, uint32_t width, uint32_t height, size_t wanted)
{
    std::vector<uint8_t> frame(size_t{width} * height * 2);
    std::optional<uint32_t> last;
    size_t frames = 0;
    for (; file.read(reinterpret_cast<char*>(frame.data()),
                     static_cast<std::streamsize>(frame.size()));
         ++frames) {
        const auto number = sim::read_frame_number(width, height, frame, false, false);
        if (!number) {
            std::printf("frame %zu carries no number\n", frames);
            return 1;
        }
        if (last && *number <= *last) {
            std::printf("frame %zu has number %u after %u\n", frames, *number, *last);
            return 1;
        }
        last = number;
        const std::vector<uint8_t> expected = expected_frame(width, height, *number);
        const auto difference = std::ranges::mismatch(frame, expected);
        if (difference.in1 != frame.end()) {
            std::printf("frame %zu, number %u, differs at byte %td\n", frames, *number,
                        difference.in1 - frame.begin());
            return 1;
        }
    }
    if (file.gcount() != 0 || frames < wanted) {
        std::printf("%zu frames and %td bytes, but %zu frames are wanted\n", frames, file.gcount(),
                    wanted);
        return 1;
    }
    std::printf("%zu frames, the last one is number %u\n", frames, last.value_or(0));
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 5) {
        std::fprintf(stderr, "check_frames FILE WIDTH HEIGHT COUNT\n");
        return 2;
    }
    const auto number = [&](int at) {
        return static_cast<uint32_t>(std::strtoul(argv[at], nullptr, 10));
    };
    std::ifstream file(argv[1], std::ios::binary);
    if (!file) {
        std::printf("cannot read %s\n", argv[1]);
        return 1;
    }
    return check(file, number(2), number(3), number(4));
}
