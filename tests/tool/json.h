// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <concepts>
#include <cstddef>
#include <iosfwd>
#include <map>
#include <string>
#include <variant>
#include <vector>

namespace test {

/// What a program has printed as JSON. What is not there is null; what is no JSON throws.
class Json {
public:
    using List = std::vector<Json>;
    using Members = std::map<std::string, Json>;

    static Json parse(const std::string& text);

    Json() = default;
    Json(std::nullptr_t) {}
    Json(bool truth) : content_(truth) {}
    template <typename Number>
    requires std::integral<Number> || std::floating_point<Number> Json(Number number)
        : content_(static_cast<double>(number))
    {
    }
    Json(const char* text) : content_(std::string(text)) {}
    Json(std::string text) : content_(std::move(text)) {}
    Json(List list) : content_(std::move(list)) {}
    Json(Members members) : content_(std::move(members)) {}

    /// Of an object.
    const Json& operator[](const std::string& name) const;
    /// Of a list, as begin() and end().
    const Json& operator[](int index) const { return list().at(static_cast<size_t>(index)); }
    List::const_iterator begin() const { return list().begin(); }
    List::const_iterator end() const { return list().end(); }
    /// Of a list or an object.
    size_t size() const;

    const std::string& text() const { return std::get<std::string>(content_); }
    double number() const { return std::get<double>(content_); }
    explicit operator bool() const { return std::get<bool>(content_); }

    bool operator==(const Json& other) const = default;
    /// As the program could have printed it.
    friend std::ostream& operator<<(std::ostream& out, const Json& json);

private:
    const List& list() const { return std::get<List>(content_); }

    std::variant<std::monostate, bool, double, std::string, List, Members> content_;
};

/// What a program has printed as one of them a line.
std::vector<Json> events(const std::string& output);

} // namespace test
