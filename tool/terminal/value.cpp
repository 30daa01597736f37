// SPDX-License-Identifier: Apache-2.0
#include "terminal/value.h"

#include <utility>

namespace tool {

Value::Value() : content_(nullptr) {}
Value::Value(bool truth) : content_(truth) {}
Value::Value(int number) : content_(int64_t{number}) {}
Value::Value(int64_t number) : content_(number) {}
Value::Value(unsigned number) : content_(uint64_t{number}) {}
Value::Value(uint64_t number) : content_(number) {}
Value::Value(double number) : content_(number) {}
Value::Value(const char* text) : content_(std::string(text)) {}
Value::Value(std::string text) : content_(std::move(text)) {}
Value::Value(Bytes bytes) : content_(std::move(bytes)) {}
Value::Value(List list) : content_(std::move(list)) {}
Value::Value(Members members) : content_(std::move(members)) {}
Value::Value(const Value& other) = default;
Value::Value(Value&& other) noexcept = default;
Value& Value::operator=(const Value& other) = default;
Value& Value::operator=(Value&& other) noexcept = default;
Value::~Value() = default;

Value Value::shown_as(std::string text, Value value)
{
    value.text_ = std::move(text);
    return value;
}

} // namespace tool
