// SPDX-License-Identifier: Apache-2.0
#include "description/kinds.h"

#include "text/format.h"

namespace sim {

namespace {

std::string format_number(int64_t value, Digits digits)
{
    if (digits == Digits::kDecimal)
        return std::to_string(value);
    return text::format(value > 0xFF ? "0x%04llX" : "0x%02llX",
                        static_cast<unsigned long long>(value));
}

std::string in_quotes(std::string_view text)
{
    return '"' + std::string(text) + '"';
}

struct KindText {
    std::string operator()(const Number& n) const
    {
        const bool power = n.digits == Digits::kHexPowerOfTwo;
        return std::string(power ? "a power of two from " : "a whole number from ") +
               format_number(n.least, n.digits) + " to " + format_number(n.most, n.digits);
    }
    std::string operator()(const EitherNumber& n) const
    {
        return std::to_string(n.first) + " or " + std::to_string(n.second);
    }
    std::string operator()(const NumberOrRange& n) const
    {
        return operator()(Number{n.least, n.most, n.digits}) + ", or a range [FROM, TO] or [FROM]";
    }
    std::string operator()(const Share&) const { return "a number from 0 to 1"; }
    std::string operator()(const SerialOrPlace&) const
    {
        return "a serial number in quotes, or 1 for the first camera";
    }
    std::string operator()(const Text& t) const
    {
        return "a text of " + (t.shortest > 0 ? std::to_string(t.shortest) + " to " : "at most ") +
               std::to_string(t.longest) + " plain characters";
    }
    std::string operator()(const Word& w) const
    {
        return "a text of 1 to " + std::to_string(w.longest) + " letters, digits, '-', '_' and '.'";
    }
    std::string operator()(const Truth&) const { return "true or false"; }
    std::string operator()(const ByteList& l) const
    {
        const std::string range = l.fewest == l.most
                                      ? std::to_string(l.most)
                                      : std::to_string(l.fewest) + " to " + std::to_string(l.most);
        return "a list of " + range + " bytes, each from 0x00 to 0xFF";
    }
    std::string operator()(const NumberList& l) const
    {
        return "a list of 1 to " + std::to_string(l.most_numbers) + " whole numbers from " +
               std::to_string(l.least) + " to " + std::to_string(l.most) + " that rise";
    }
    std::string operator()(const Path&) const { return "the name of a file"; }
    std::string operator()(const Choice& c) const
    {
        std::string text;
        for (const std::string_view word : c.words)
            text += (text.empty() ? "" : " or ") + in_quotes(word);
        return text;
    }
    std::string operator()(const PartOrTable& p) const
    {
        return "the name of a part or a table [" + std::string(p.section) + "]";
    }
    std::string operator()(const Table&) const { return "a table"; }
    std::string operator()(const Tables& t) const
    {
        return "1 to " + std::to_string(t.most) + " tables";
    }
    std::string operator()(const PixelSize&) const
    {
        return "a text such as \"640x480\", with an even width";
    }
    std::string operator()(const SizeList& s) const
    {
        return "a list of 1 to " + std::to_string(s.most) +
               " texts such as \"640x480: 30, 15\", with even widths and rates that fall";
    }
};

struct ValueText {
    const Kind& kind;

    std::string operator()(int64_t value) const
    {
        const auto* rule = std::get_if<Number>(&kind);
        return format_number(value, rule != nullptr ? rule->digits : Digits::kDecimal);
    }
    std::string operator()(double value) const { return text::format("%g", value); }
    std::string operator()(bool value) const { return value ? "true" : "false"; }
    std::string operator()(const std::string& value) const { return in_quotes(value); }
    std::string operator()(const std::vector<uint8_t>& value) const
    {
        std::string text;
        for (const uint8_t byte : value)
            text += (text.empty() ? "" : ", ") + format_number(byte, Digits::kHex);
        return "[" + text + "]";
    }
    std::string operator()(const std::vector<uint32_t>& value) const
    {
        std::string text;
        for (const uint32_t number : value)
            text += (text.empty() ? "" : ", ") + std::to_string(number);
        return "[" + text + "]";
    }
    // No key is one of these by default.
    std::string operator()(const Range&) const { return ""; }
    std::string operator()(const FrameSize&) const { return ""; }
    std::string operator()(const std::vector<FrameSize>&) const { return ""; }
};

} // namespace

std::string describe_kind(const Kind& kind)
{
    return std::visit(KindText{}, kind);
}

std::string format_value(const Value& value, const Kind& kind)
{
    return std::visit(ValueText{kind}, value);
}

} // namespace sim
