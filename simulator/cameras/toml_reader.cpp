// SPDX-License-Identifier: Apache-2.0
#include "cameras/toml_reader.h"

#include "cameras/camera_file.h"
#include "text/nearest.h"
#include "text/printable.h"

#include <algorithm>
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

/// What stands there, as far as it helps: the number that is too large, the type otherwise.
std::string name_value(const toml::node& node, const Kind& kind)
{
    if (const auto* number = node.as_integer(); number != nullptr) {
        if (const auto* rule = std::get_if<Number>(&kind);
            rule != nullptr && rule->digits != Digits::kDecimal && number->get() >= 0)
            return format_value(number->get(), kind);
        return std::to_string(number->get());
    }
    if (const auto* text = node.as_string();
        text != nullptr &&
        (std::holds_alternative<Choice>(kind) || std::holds_alternative<Word>(kind)))
        return '"' + shown(text->get()) + '"';
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
    std::optional<Value> operator()(const Choice& rule) const
    {
        const auto* text = node.as_string();
        const bool fits =
            text != nullptr && std::ranges::find(rule.words, text->get()) != rule.words.end();
        return fits ? std::optional<Value>(text->get()) : std::nullopt;
    }
    std::optional<Value> operator()(const PartOrTable&) const { return std::nullopt; }
    std::optional<Value> operator()(const Table&) const { return std::nullopt; }
};

} // namespace

bool is_name_character(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
           c == '_' || c == '.';
}

void Mistakes::add(const toml::source_region& where, const std::string& what)
{
    found_.push_back({where.begin, what});
}

void Mistakes::add(const std::string& what)
{
    found_.push_back({{}, what});
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
    throw CameraFileError(text.str());
}

toml::table parse_toml(std::string_view text, const std::string& file)
{
    Mistakes mistakes(file);
    if (std::ranges::count(text, '.') > kMostDots) {
        mistakes.add("this is no camera description: it has too many dots");
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
