// SPDX-License-Identifier: Apache-2.0
// Enumerations of C++ as enumerations of Python, whose values are the words of the tool's JSON.
#pragma once

#include <pybind11/pybind11.h>

#include <nyxus/engine.hpp>
#include <nyxus/nyxus.hpp>

#include <algorithm>
#include <cctype>
#include <string>
#include <vector>

namespace nyxus::python {

namespace py = pybind11;

/// The members of the Python enumeration that stands for E, in the order of E.
template <typename E>
struct Words {
    static inline std::vector<py::handle> members; ///< live as long as the interpreter
};

/// Makes the enumeration: a member for each word, in the order of E; READING_AGAIN = "reading
/// again".
template <typename E>
void add_words(py::module_& module, const char* name, const std::vector<std::string>& words)
{
    py::list pairs;
    for (const std::string& word : words) {
        std::string member = word;
        std::ranges::transform(member, member.begin(), [](unsigned char c) {
            return static_cast<char>(std::isalnum(c) != 0 ? std::toupper(c) : '_');
        });
        pairs.append(py::make_tuple(member, word));
    }
    const py::object made = py::module_::import("enum").attr("Enum")(
        name, pairs, py::arg("module") = module.attr("__name__"));
    for (const py::handle member : made)
        Words<E>::members.push_back(py::reinterpret_borrow<py::object>(member).release());
    module.attr(name) = made;
}

/// The same for one whose words C++ tells.
template <typename E>
void add_words(py::module_& module, const char* name, E last)
{
    std::vector<std::string> words;
    for (int value = 0; value <= static_cast<int>(last); ++value)
        words.emplace_back(to_text(static_cast<E>(value)));
    add_words<E>(module, name, words);
}

/// All of them. Has to come first: defaults of arguments use them.
void add_words(py::module_& module);

} // namespace nyxus::python

namespace pybind11::detail {

template <typename E>
struct word_caster {
    PYBIND11_TYPE_CASTER(E, const_name("enum.Enum"));

    bool load(handle source, bool /*convert*/)
    {
        const auto& members = nyxus::python::Words<E>::members;
        const auto found =
            std::ranges::find_if(members, [&](handle member) { return member.is(source); });
        value = static_cast<E>(found - members.begin());
        return found != members.end();
    }

    static handle cast(E value, return_value_policy /*policy*/, handle /*parent*/)
    {
        return nyxus::python::Words<E>::members.at(static_cast<size_t>(value)).inc_ref();
    }
};

template <>
struct type_caster<nyxus::RomState> : word_caster<nyxus::RomState> {
};
template <>
struct type_caster<nyxus::RateControl> : word_caster<nyxus::RateControl> {
};
template <>
struct type_caster<nyxus::FrameType> : word_caster<nyxus::FrameType> {
};
template <>
struct type_caster<nyxus::engine::Use> : word_caster<nyxus::engine::Use> {
};
template <>
struct type_caster<nyxus::engine::Phase> : word_caster<nyxus::engine::Phase> {
};
template <>
struct type_caster<nyxus::engine::RomContents> : word_caster<nyxus::engine::RomContents> {
};
template <>
struct type_caster<nyxus::engine::Event::Kind> : word_caster<nyxus::engine::Event::Kind> {
};
template <>
struct type_caster<nyxus::engine::Keep> : word_caster<nyxus::engine::Keep> {
};
template <>
struct type_caster<nyxus::engine::Action> : word_caster<nyxus::engine::Action> {
};
template <>
struct type_caster<nyxus::engine::Started> : word_caster<nyxus::engine::Started> {
};
template <>
struct type_caster<nyxus::engine::RomRecord> : word_caster<nyxus::engine::RomRecord> {
};
template <>
struct type_caster<nyxus::engine::ImageFacts::Contents>
    : word_caster<nyxus::engine::ImageFacts::Contents> {
};

} // namespace pybind11::detail
