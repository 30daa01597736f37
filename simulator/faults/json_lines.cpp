// SPDX-License-Identifier: Apache-2.0
#include "faults/json_lines.h"

#include "text/printable.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <iterator>
#include <utility>

namespace sim {

namespace {

using nlohmann::json;

constexpr int kDeepest = 4; // list, element, its triggers, a range

/// Walks over the text and tells how far it has come.
class Cursor {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = char;
    using difference_type = std::ptrdiff_t;
    using pointer = const char*;
    using reference = const char&;

    Cursor(const char* at, const char** farthest) : at_(at), farthest_(farthest) {}
    reference operator*() const { return *at_; }
    Cursor& operator++()
    {
        *farthest_ = ++at_;
        return *this;
    }
    Cursor operator++(int)
    {
        const Cursor before = *this;
        ++*this;
        return before;
    }
    bool operator==(const Cursor& other) const { return at_ == other.at_; }

private:
    const char* at_;
    const char** farthest_;
};

unsigned line_at(std::string_view text, size_t offset)
{
    const auto end = text.begin() + static_cast<std::ptrdiff_t>(std::min(offset, text.size()));
    return 1 + static_cast<unsigned>(std::count(text.begin(), end, '\n'));
}

/// What the parser says, without its own name, numbers and position, fit for a terminal.
std::string plain(const std::string& what)
{
    const size_t start = what.find("syntax error");
    return text::printable(what.substr(start == std::string::npos ? 0 : start));
}

/// Notes the lines of what the parser comes by.
class Recorder {
public:
    void note(int depth, json::parse_event_t event, const json& parsed, unsigned line)
    {
        const bool begins =
            event == json::parse_event_t::object_start || event == json::parse_event_t::array_start;
        if (begins && depth >= kDeepest)
            throw JsonList::Mistake(line, "too many brackets inside each other");
        if (depth == 1 && event != json::parse_event_t::key) {
            lines.try_emplace({elements_, {}}, line);
            elements_ += begins ? 0 : 1;
        } else if (event == json::parse_event_t::key) {
            note_key(depth, parsed.get_ref<const std::string&>(), line);
        }
    }

    JsonList::Lines lines;

private:
    void note_key(int depth, const std::string& name, unsigned line)
    {
        if (depth == 2)
            outer_key_ = name;
        const std::string path = depth == 2 ? name : outer_key_ + "." + name;
        if (!lines.try_emplace({elements_, path}, line).second)
            throw JsonList::Mistake(line,
                                    "\"" + plain(name) + "\" stands here for the second time");
    }

    size_t elements_ = 0;
    std::string outer_key_;
};

} // namespace

JsonList::JsonList(std::string_view text)
{
    const char* const begin = text.data();
    const char* const end = begin + text.size();
    const char* farthest = begin;
    const char* counted_to = begin; // lines are counted once
    unsigned line = 1;
    Recorder recorder;
    const auto callback = [&](int depth, json::parse_event_t event, json& parsed) {
        line += static_cast<unsigned>(std::count(counted_to, farthest, '\n'));
        counted_to = farthest;
        recorder.note(depth, event, parsed, line);
        return true;
    };
    try {
        root_ = std::make_unique<json>(
            json::parse(Cursor(begin, &farthest), Cursor(end, &farthest), callback, true, true));
    } catch (const json::parse_error& error) {
        throw Mistake(line_at(text, error.byte == 0 ? 0 : error.byte - 1),
                      "this is not JSON: " + plain(error.what()));
    } catch (const json::exception& error) { // a number beyond all bounds
        throw Mistake(line_at(text, static_cast<size_t>(farthest - begin)), plain(error.what()));
    }
    lines_ = std::move(recorder.lines);
}

JsonList::~JsonList() = default;

unsigned JsonList::line_of(size_t element, const std::string& key) const
{
    for (const std::string& path : {key, std::string()}) {
        if (const auto found = lines_.find({element, path}); found != lines_.end())
            return found->second;
    }
    return 1;
}

} // namespace sim
