// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace tool {

class Value;
struct Member;
/// In their order.
using Members = std::vector<Member>;

/// What a result tells, as text or as JSON: nothing, a truth, a number, a text, bytes, a list, or
/// an object's members.
class Value {
public:
    using Bytes = std::vector<uint8_t>;
    using List = std::vector<Value>;
    using Content = std::variant<std::nullptr_t, bool, int64_t, uint64_t, double, std::string,
                                 Bytes, List, Members>;

    Value();
    Value(bool truth);
    Value(int number);
    Value(int64_t number);
    Value(unsigned number);
    Value(uint64_t number);
    Value(double number);
    Value(const char* text);
    Value(std::string text);
    Value(Bytes bytes);
    template <size_t kCount>
    Value(const std::array<uint8_t, kCount>& bytes);
    Value(List list);
    Value(Members members);
    // Not inline: they would be most of the code of the commands.
    Value(const Value& other);
    Value(Value&& other) noexcept;
    Value& operator=(const Value& other);
    Value& operator=(Value&& other) noexcept;
    ~Value();

    /// What people read of it where JSON has the number, the truth or the members.
    static Value shown_as(std::string text, Value value);

    const Content& content() const { return content_; }
    const std::string& text() const { return text_; } ///< "": as its content says
    bool is_nothing() const { return content_.index() == 0; }

private:
    Content content_;
    std::string text_;
};

struct Member {
    std::string name;
    Value value;
};

template <size_t kCount>
Value::Value(const std::array<uint8_t, kCount>& bytes) : Value(Bytes(bytes.begin(), bytes.end()))
{
}

} // namespace tool
