// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
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

    const Content& content() const { return content_; }

private:
    Content content_;
};

struct Member {
    std::string name;
    Value value;
};

// Here, because a list of members wants to know what a member is.
inline Value::Value() : content_(nullptr) {}
inline Value::Value(bool truth) : content_(truth) {}
inline Value::Value(int number) : content_(int64_t{number}) {}
inline Value::Value(unsigned number) : content_(uint64_t{number}) {}
inline Value::Value(uint64_t number) : content_(number) {}
inline Value::Value(double number) : content_(number) {}
inline Value::Value(const char* text) : content_(std::string(text)) {}
inline Value::Value(std::string text) : content_(std::move(text)) {}
inline Value::Value(Bytes bytes) : content_(std::move(bytes)) {}
template <size_t kCount>
Value::Value(const std::array<uint8_t, kCount>& bytes) : content_(Bytes(bytes.begin(), bytes.end()))
{
}
inline Value::Value(List list) : content_(std::move(list)) {}
inline Value::Value(Members members) : content_(std::move(members)) {}

} // namespace tool
