// SPDX-License-Identifier: Apache-2.0
#include "description/reader.h"

#include "text/nearest.h"
#include "text/printable.h"

#include <algorithm>
#include <cstdio>
#include <sstream>

namespace sim {

namespace {

/// A table in a table in a table: each level costs the parser stack.
constexpr std::ptrdiff_t kMostDots = 2000;

/// Keys and texts may hold anything, of any length.
std::string shown(std::string_view text)
{
    constexpr size_t kLongest = 60;
    return text::printable(text.substr(0, kLongest)) + (text.size() > kLongest ? "..." : "");
}

bool is_byte(const toml::node& node)
{
    const auto* number = node.as_integer();
    return number != nullptr && number->get() >= 0 && number->get() <= 0xFF;
}

// "640x480", and what follows. nullptr when it is none.
const char* parse_pixels(const char* text, FrameSize& size)
{
    constexpr unsigned kLeast = 32; // the headers of a JPEG need room, too
    constexpr unsigned kMost = 4096;
    unsigned width = 0;
    unsigned height = 0;
    int at = 0;
    if (std::sscanf(text, "%4ux%4u%n", &width, &height, &at) != 2 ||
        std::min(width, height) < kLeast || std::max(width, height) > kMost || width % 2 != 0)
        return nullptr;
    size.width = static_cast<uint16_t>(width);
    size.height = static_cast<uint16_t>(height);
    return text + at;
}

// "640x480: 30, 15"
std::optional<FrameSize> parse_size(const std::string& text)
{
    constexpr unsigned kMostRate = 240;
    constexpr size_t kMostRates = 16;
    constexpr uint32_t kSecond100ns = 10'000'000;
    FrameSize size;
    const char* rest = parse_pixels(text.c_str(), size);
    if (rest == nullptr)
        return std::nullopt;
    unsigned rate = 0;
    int at = 0;
    for (unsigned last = kMostRate + 1;
         std::sscanf(rest, size.intervals_100ns.empty() ? ": %3u%n" : ", %3u%n", &rate, &at) == 1;
         rest += at, last = rate) {
        if (rate == 0 || rate >= last || size.intervals_100ns.size() == kMostRates)
            return std::nullopt;
        size.intervals_100ns.push_back(kSecond100ns / rate);
    }
    return *rest == '\0' && !size.intervals_100ns.empty() ? std::optional(size) : std::nullopt;
}

std::string name_type(const toml::node& node)
{
    switch (node.type()) {
        case toml::node_type::table:
            return "a table";
        case toml::node_type::array:
            return "a list";
        case toml::node_type::string:
            return "a text";
        case toml::node_type::integer:
            return "a whole number";
        case toml::node_type::floating_point:
            return "a number with a decimal point";
        case toml::node_type::boolean:
            return "true or false";
        default:
            return "a date or time";
    }
}

/// "; did you mean ...?", where the choice is too large to be seen at a glance.
std::string near_word(const std::string& text, const Kind& kind)
{
    constexpr size_t kSeenAtAGlance = 3;
    const auto* choice = std::get_if<Choice>(&kind);
    return choice != nullptr && choice->words.size() > kSeenAtAGlance
               ? text::did_you_mean(text, choice->words, '"')
               : "";
}

std::string name_number(int64_t number, Digits digits)
{
    return number < 0 ? std::to_string(number) : format_value(number, Number{0, 0, digits});
}

/// "[3, 2]", where all of it are whole numbers.
std::string name_list(const toml::array& list, Digits digits)
{
    std::string text;
    for (const toml::node& item : list) {
        if (!item.is_integer())
            return "a list";
        text += (text.empty() ? "" : ", ") + name_number(item.as_integer()->get(), digits);
    }
    return '[' + shown(text) + ']';
}

/// What stands there, as far as it helps: the number that is too large, the type otherwise.
std::string name_value(const toml::node& node, const Kind& kind)
{
    const auto* range = std::get_if<NumberOrRange>(&kind);
    if (const auto* number = node.as_integer(); number != nullptr) {
        const auto* rule = std::get_if<Number>(&kind);
        return name_number(number->get(), range != nullptr  ? range->digits
                                          : rule != nullptr ? rule->digits
                                                            : Digits::kDecimal);
    }
    if (const auto* list = node.as_array(); list != nullptr && range != nullptr)
        return name_list(*list, range->digits);
    if (const auto* text = node.as_string();
        text != nullptr &&
        (std::holds_alternative<Choice>(kind) || std::holds_alternative<Word>(kind)))
        return '"' + shown(text->get()) + '"' + near_word(text->get(), kind);
    if (const auto* text = node.as_string();
        text != nullptr && std::holds_alternative<Text>(kind)) {
        return text::is_plain(text->get()) ? "a text of " + std::to_string(text->get().size())
                                           : "a text with other characters";
    }
    if (const auto* list = node.as_array();
        list != nullptr && std::holds_alternative<ByteList>(kind)) {
        const auto misfit = std::ranges::find_if_not(*list, is_byte);
        if (misfit == list->end())
            return "a list of " + std::to_string(list->size());
        return "a list with " +
               (misfit->is_integer() ? name_value(*misfit, Number{}) : name_type(*misfit));
    }
    return name_type(node);
}

struct Reader {
    const toml::node& node;

    std::optional<Value> operator()(const Number& rule) const
    {
        const auto* number = node.as_integer();
        if (number == nullptr || number->get() < rule.least || number->get() > rule.most)
            return std::nullopt;
        const int64_t value = number->get();
        const bool power_of_two = (value & (value - 1)) == 0;
        return rule.digits != Digits::kHexPowerOfTwo || power_of_two ? std::optional<Value>(value)
                                                                     : std::nullopt;
    }
    std::optional<Value> operator()(const EitherNumber& rule) const
    {
        const auto* number = node.as_integer();
        const bool fits =
            number != nullptr && (number->get() == rule.first || number->get() == rule.second);
        return fits ? std::optional<Value>(number->get()) : std::nullopt;
    }
    std::optional<Value> operator()(const NumberOrRange& rule) const
    {
        const auto fits = [&rule](const toml::node& item) {
            return item.is_integer() && item.as_integer()->get() >= rule.least &&
                   item.as_integer()->get() <= rule.most;
        };
        const auto value = [](const toml::node& item) {
            return static_cast<uint64_t>(item.as_integer()->get());
        };
        if (fits(node))
            return Range{value(node), value(node)};
        const auto* list = node.as_array();
        if (list == nullptr || list->empty() || list->size() > 2 ||
            !std::ranges::all_of(*list, fits))
            return std::nullopt;
        const Range range{value(list->front()),
                          list->size() == 2 ? value(list->back()) : Range{}.to};
        return range.from <= range.to ? std::optional<Value>(range) : std::nullopt;
    }
    std::optional<Value> operator()(const Share&) const
    {
        const auto share = node.is_number() ? node.value<double>() : std::nullopt;
        return share >= 0.0 && share <= 1.0 ? std::optional<Value>(*share) : std::nullopt;
    }
    std::optional<Value> operator()(const SerialOrPlace&) const
    {
        if (node.is_integer())
            return operator()(Number{1, UINT16_MAX});
        return operator()(Text{1, 126});
    }
    std::optional<Value> operator()(const Text& rule) const
    {
        const auto* text = node.as_string();
        const bool fits = text != nullptr && text->get().size() >= rule.shortest &&
                          text->get().size() <= rule.longest && text::is_plain(text->get());
        return fits ? std::optional<Value>(text->get()) : std::nullopt;
    }
    std::optional<Value> operator()(const Word& rule) const
    {
        const auto* text = node.as_string();
        const bool fits = text != nullptr && !text->get().empty() &&
                          text->get().size() <= rule.longest &&
                          std::ranges::all_of(text->get(), is_name_character);
        return fits ? std::optional<Value>(text->get()) : std::nullopt;
    }
    std::optional<Value> operator()(const Truth&) const
    {
        const auto* truth = node.as_boolean();
        return truth != nullptr ? std::optional<Value>(truth->get()) : std::nullopt;
    }
    std::optional<Value> operator()(const ByteList& rule) const
    {
        const auto* list = node.as_array();
        if (list == nullptr || list->size() < rule.fewest || list->size() > rule.most ||
            !std::ranges::all_of(*list, is_byte))
            return std::nullopt;
        std::vector<uint8_t> bytes;
        for (const toml::node& item : *list)
            bytes.push_back(static_cast<uint8_t>(item.as_integer()->get()));
        return bytes;
    }
    std::optional<Value> operator()(const NumberList& rule) const
    {
        const auto* list = node.as_array();
        if (list == nullptr || list->empty() || list->size() > rule.most_numbers)
            return std::nullopt;
        std::vector<uint32_t> numbers;
        for (const toml::node& item : *list) {
            const auto* number = item.as_integer();
            if (number == nullptr || number->get() < rule.least || number->get() > rule.most ||
                (!numbers.empty() && number->get() <= numbers.back()))
                return std::nullopt;
            numbers.push_back(static_cast<uint32_t>(number->get()));
        }
        return numbers;
    }
    std::optional<Value> operator()(const Path&) const
    {
        const auto* text = node.as_string();
        const bool fits =
            text != nullptr && !text->get().empty() && text->get().find('\0') == std::string::npos;
        return fits ? std::optional<Value>(text->get()) : std::nullopt;
    }
    std::optional<Value> operator()(const Choice& rule) const
    {
        const auto* text = node.as_string();
        const bool fits =
            text != nullptr && std::ranges::find(rule.words, text->get()) != rule.words.end();
        return fits ? std::optional<Value>(text->get()) : std::nullopt;
    }
    std::optional<Value> operator()(const PixelSize&) const
    {
        FrameSize size;
        const auto* text = node.as_string();
        const char* rest = text != nullptr ? parse_pixels(text->get().c_str(), size) : nullptr;
        return rest != nullptr && *rest == '\0' ? std::optional<Value>(size) : std::nullopt;
    }
    std::optional<Value> operator()(const SizeList& rule) const
    {
        const auto* list = node.as_array();
        if (list == nullptr || list->empty() || list->size() > rule.most)
            return std::nullopt;
        std::vector<FrameSize> sizes;
        for (const toml::node& item : *list) {
            const auto* text = item.as_string();
            const auto size = text != nullptr ? parse_size(text->get()) : std::nullopt;
            if (!size)
                return std::nullopt;
            sizes.push_back(*size);
        }
        return sizes;
    }
    std::optional<Value> operator()(const PartOrTable&) const { return std::nullopt; }
    std::optional<Value> operator()(const Table&) const { return std::nullopt; }
    std::optional<Value> operator()(const Tables&) const { return std::nullopt; }
};

} // namespace

bool is_name_character(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.';
}

void Mistakes::add(const toml::source_region& where, const std::string& what)
{
    found_.push_back({where.begin, subject_ + what});
}

void Mistakes::add(const std::string& what)
{
    found_.push_back({{}, subject_ + what});
}

void Mistakes::throw_if_any() const
{
    if (found_.empty())
        return;
    std::vector<Mistake> sorted = found_;
    std::ranges::stable_sort(sorted,
                             [](const Mistake& a, const Mistake& b) { return a.where < b.where; });
    std::ostringstream text;
    for (const Mistake& mistake : sorted) {
        text << (&mistake == sorted.data() ? "" : "\n") << file_;
        if (mistake.where)
            text << ":" << mistake.where.line << ":" << mistake.where.column;
        text << ": " << mistake.text;
    }
    throw DescriptionError(text.str());
}

toml::table parse_toml(std::string_view text, const std::string& file)
{
    Mistakes mistakes(file);
    if (std::ranges::count(text, '.') > kMostDots) {
        mistakes.add("a description has at most " + std::to_string(kMostDots) + " dots");
        mistakes.throw_if_any();
    }
    try {
        return toml::parse(text);
    } catch (const toml::parse_error& error) {
        mistakes.add(error.source(), "this is no TOML: " + std::string(error.description()));
        mistakes.throw_if_any();
        throw;
    }
}

const toml::key* find_key(const toml::table& table, std::string_view key)
{
    const auto found = table.find(key);
    return found == table.end() ? nullptr : &found->first;
}

void check_keys(const toml::table& table, std::span<const std::string_view> known,
                Mistakes& mistakes)
{
    for (const auto& [key, node] : table) {
        if (std::ranges::find(known, key.str()) != known.end())
            continue;
        const std::string guess = text::did_you_mean(key.str(), known);
        mistakes.add(key.source(),
                     "there is no key '" + shown(key.str()) + "' here" +
                         (guess.empty() ? "; 'nyxus-sim describe' lists them" : guess));
    }
}

void report_kind(const toml::key& key, const toml::node& node, const Kind& kind, Mistakes& mistakes)
{
    mistakes.add(key.source(), text::in_quotes(key.str()) + " must be " + describe_kind(kind) +
                                   ", not " + name_value(node, kind));
}

std::optional<Value> read_value(const toml::key& key, const toml::node& node, const Kind& kind,
                                Mistakes& mistakes)
{
    auto value = std::visit(Reader{node}, kind);
    if (!value)
        report_kind(key, node, kind, mistakes);
    return value;
}

std::vector<const toml::table*> tables_of(const toml::key& key, const toml::node& node,
                                          const Tables& kind, Mistakes& mistakes)
{
    std::vector<const toml::table*> tables;
    const auto* list = node.as_array();
    if (list == nullptr || !list->is_array_of_tables() || list->size() > kind.most) {
        report_kind(key, node, kind, mistakes);
        return tables;
    }
    for (const toml::node& item : *list)
        tables.push_back(item.as_table());
    return tables;
}

void report_missing(const toml::table& table, std::string_view section, std::string_view key,
                    const Kind& kind, std::string_view meaning, Mistakes& mistakes)
{
    const std::string where = section.empty() ? "" : "[" + std::string(section) + "] ";
    const std::string_view first_sentence = meaning.substr(0, meaning.find('.'));
    const std::string text = where + text::in_quotes(key) + " is missing: " + describe_kind(kind) +
                             " (" + std::string(first_sentence) + ")";
    if (section.empty()) {
        mistakes.add(text);
    } else {
        mistakes.add(table.source(), text);
    }
}

} // namespace sim
