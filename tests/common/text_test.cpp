// SPDX-License-Identifier: Apache-2.0
#include "text/format.h"
#include "text/hex.h"
#include "text/numbers.h"
#include "text/printable.h"

#include <gtest/gtest.h>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

TEST(Format, TakesTextOfAnyLength)
{
    const std::string large(100'000, 'x');
    EXPECT_EQ(text::format("<%s>%d", large.c_str(), 7), "<" + large + ">7");
}

TEST(Wrapped, FillsLinesUpToTheirWidth)
{
    const struct {
        const char* text;
        size_t indent;
        size_t width;
        const char* lines;
    } rows[] = {
        {"", 4, 10, ""},
        {"  \n ", 0, 10, ""},
        {"one two three", 0, 80, "one two three"},
        {"one two three", 0, 7, "one two\nthree"},
        {"one two three", 0, 6, "one\ntwo\nthree"},
        {"one two three", 2, 9, "one two\n  three"},
        {"one two three", 2, 8, "one\n  two\n  three"},
        {"a longerthantheline b", 2, 8, "a\n  longerthantheline\n  b"},
        {"longerthantheline", 2, 8, "longerthantheline"},
        {" one\n two  three ", 0, 80, "one two three"},
        {"über öde äcker", 0, 8, "über öde\näcker"},
        {"a b", 9, 3, "a\n         b"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(text::wrapped(row.text, row.indent, row.width), row.lines) << row.text;
}

TEST(Padded, CountsCharactersRatherThanBytes)
{
    EXPECT_EQ(text::padded("äö", 4), "äö  ");
    EXPECT_EQ(text::padded("long enough", 4), "long enough");
}

TEST(Printable, LeavesNothingThatATerminalObeys)
{
    const struct {
        std::string text;
        std::string shown;
    } rows[] = {
        {"plain, ~ too", "plain, ~ too"},
        {"\x1B[2J\r\n\t\x7F", "?[2J????"},
        {std::string("a\0b", 3), "a?b"},
        {"Kamera für 見る 🎥", "Kamera für 見る 🎥"},
        {"\u009B2J", "??2J"}, // a control character in UTF-8
        {"\x9B"
         "2J",
         "?2J"},                      // the same for a terminal of 8 bits
        {"\u00A0", "\u00A0"},         // the first behind them
        {"\xC0\x9B", "??"},           // an overlong form of 1B
        {"\xE0\x82\x9B", "???"},      // and of 9B
        {"\xED\xA0\x80", "???"},      // a surrogate
        {"\xF4\x90\x80\x80", "????"}, // beyond Unicode
        {"\xE8\xA6", "??"},           // cut off
        {"\xE8\xA6\x1B", "???"},
        {"\xE8", "?"},
        {"\xFF\xFE", "??"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(text::printable(row.text), row.shown) << row.shown;
    EXPECT_EQ(text::printable_lines("two\nlines\r"), "two\nlines?");
    EXPECT_EQ(text::in_quotes("a\nb"), "'a?b'");

    const char field[4] = {'a', '\xC3', '\xA4', '\xC3'}; // no terminator, and the last is cut off
    EXPECT_EQ(text::printable_field(field, sizeof field), "aä?");
    EXPECT_EQ(text::printable_field("ab\0cd", 5), "ab");
}

TEST(Hex, ComesBackAsItWas)
{
    const Bytes bytes = {0x00, 0x0F, 0xA5, 0xFF};
    EXPECT_EQ(text::hex(bytes), "000FA5FF");
    EXPECT_EQ(text::hex(bytes, " "), "00 0F A5 FF");
    EXPECT_EQ(text::hex({}, " "), "");
    EXPECT_EQ(text::bytes_from_hex("000fA5FF"), bytes);
    EXPECT_EQ(text::bytes_from_hex(""), Bytes());
    for (const char* wrong : {"0", "000", "0g", "g0", " 0", "0x", "-1", "+1", "00 11"})
        EXPECT_EQ(text::bytes_from_hex(wrong), std::nullopt) << wrong;
}

TEST(ParseNumber, TakesTheWholeTextOrNothing)
{
    EXPECT_EQ(text::parse_number("0"), 0U);
    EXPECT_EQ(text::parse_number("010"), 10U);
    EXPECT_EQ(text::parse_number("0x10"), 16U);
    EXPECT_EQ(text::parse_number("0XfF"), 255U);
    EXPECT_EQ(text::parse_number("18446744073709551615"), UINT64_MAX);
    EXPECT_EQ(text::parse_number("255", 255), 255U);
    for (const char* wrong : {"", " 1", "1 ", "-1", "+1", "0x", "0x-1", "0x0x1", "12x", "1.5",
                              "18446744073709551616", "0x10000000000000000"})
        EXPECT_EQ(text::parse_number(wrong), std::nullopt) << wrong;
    EXPECT_EQ(text::parse_number("256", 255), std::nullopt);
}

} // namespace
