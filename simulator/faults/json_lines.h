// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace sim {

/// A JSON list of objects, with the lines on which its parts stand.
class JsonList {
public:
    /// What is wrong with the text, and where.
    struct Mistake : std::runtime_error {
        Mistake(unsigned the_line, const std::string& text)
            : std::runtime_error(text), line(the_line)
        {
        }
        unsigned line;
    };

    /// Comments are allowed; a key twice in one object is not, nor is deep nesting. Throws Mistake.
    explicit JsonList(std::string_view text);
    ~JsonList();
    JsonList(const JsonList&) = delete;
    JsonList& operator=(const JsonList&) = delete;

    const nlohmann::json& root() const { return *root_; }
    /// Of the element, counted from 0, or of one of its keys, such as "when.unit".
    unsigned line_of(size_t element, const std::string& key = {}) const;

    /// By the element and its key; of the element itself with an empty one.
    using Lines = std::map<std::pair<size_t, std::string>, unsigned>;

private:
    std::unique_ptr<const nlohmann::json> root_;
    Lines lines_;
};

} // namespace sim
