// SPDX-License-Identifier: Apache-2.0
#include "features/color.h"

#include "terminal/text.h"
#include "text/hex.h"
#include "text/numbers.h"

#include <algorithm>
#include <cmath>

namespace tool {

namespace {

struct Name {
    const char* name;
    std::array<uint8_t, 3> rgb;
};

constexpr Name kNames[] = {
    {"black", {0, 0, 0}},      {"white", {255, 255, 255}}, {"gray", {128, 128, 128}},
    {"red", {255, 0, 0}},      {"green", {0, 255, 0}},     {"blue", {0, 0, 255}},
    {"yellow", {255, 255, 0}}, {"cyan", {0, 255, 255}},    {"magenta", {255, 0, 255}},
};

uint8_t to_byte(double value)
{
    return static_cast<uint8_t>(std::lround(std::clamp(value, 0.0, 255.0)));
}

Color from_rgb(std::span<const uint8_t> rgb)
{
    const double r = rgb[0];
    const double g = rgb[1];
    const double b = rgb[2];
    return {to_byte(16 + (65.738 * r + 129.057 * g + 25.064 * b) / 256),
            to_byte(128 + (-37.945 * r - 74.494 * g + 112.439 * b) / 256),
            to_byte(128 + (112.439 * r - 94.154 * g - 18.285 * b) / 256)};
}

/// Of a colour with a name, that of the name: the way to Y, Cb, Cr and back loses a little.
std::string rgb_text(const Color& color)
{
    for (const Name& known : kNames) {
        if (from_rgb(known.rgb) == color)
            return format("#%02X%02X%02X", known.rgb[0], known.rgb[1], known.rgb[2]);
    }
    const double y = 298.082 * (color[0] - 16);
    const double cb = color[1] - 128;
    const double cr = color[2] - 128;
    return format("#%02X%02X%02X", to_byte((y + 408.583 * cr) / 256),
                  to_byte((y - 100.291 * cb - 208.120 * cr) / 256),
                  to_byte((y + 516.412 * cb) / 256));
}

std::optional<Color> parse_numbers(const std::string& text)
{
    Color color{};
    size_t start = 0;
    for (uint8_t& part : color) {
        const size_t end = &part == &color.back() ? text.size() : text.find(',', start);
        if (end == std::string::npos)
            return std::nullopt;
        const auto number = text::parse_number(text.substr(start, end - start));
        if (!number || *number > 0xFF)
            return std::nullopt;
        part = static_cast<uint8_t>(*number);
        start = end + 1;
    }
    return color;
}

} // namespace

std::optional<Color> parse_color(const std::string& text)
{
    const auto* const known = std::ranges::find(kNames, text, &Name::name);
    if (known != std::end(kNames))
        return from_rgb(known->rgb);
    if (text.find(',') != std::string::npos)
        return parse_numbers(text);
    const auto rgb = text::bytes_from_hex(
        text.substr(text.starts_with('#') ? 1 : 0)); // shells take it for a comment
    return rgb && rgb->size() == 3 ? std::optional(from_rgb(*rgb)) : std::nullopt;
}

std::string refuse_color(const std::string& text)
{
    if (parse_color(text))
        return "";
    std::string names;
    for (const Name& known : kNames)
        names += std::string(known.name) + ", ";
    return in_quotes(text) + " is no colour: " + names +
           "RRGGBB, '#RRGGBB', or Y,Cb,Cr such as 235,128,128";
}

Value value_of(const Color& color)
{
    const std::string rgb = rgb_text(color);
    return Value::shown_as(
        rgb, Members{{"rgb", rgb}, {"ycbcr", Value::Bytes(color.begin(), color.end())}});
}

} // namespace tool
